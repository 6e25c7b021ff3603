// The list of commands, apart from the frame so that tests can bring their own.

#include "publisher/buildcommand.h"
#include "publisher/buildlaunchercommand.h"
#include "publisher/checkcommand.h"
#include "publisher/command.h"
#include "publisher/historycommands.h"
#include "publisher/probecommand.h"

std::vector<std::unique_ptr<Command>> allCommands()
{
    std::vector<std::unique_ptr<Command>> commands;
    commands.push_back(std::make_unique<BuildCommand>());
    commands.push_back(std::make_unique<BuildLauncherCommand>());
    commands.push_back(std::make_unique<CheckCommand>());
    commands.push_back(std::make_unique<ProbeCommand>());
    commands.push_back(std::make_unique<HistoryCommand>());
    commands.push_back(std::make_unique<ShowCommand>());
    commands.push_back(std::make_unique<RollbackCommand>());
    commands.push_back(std::make_unique<PromoteCommand>());
    return commands;
}
