#include "publisher/cli/commandline.h"

#include "app/buildconfig.h"
#include "publisher/cli/commands.h"
#include "publisher/cli/output.h"

#include <QCommandLineParser>
#include <QIODevice>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

constexpr QLatin1StringView programName("halden-publish");

QString namesOfCommands()
{
    QStringList names;
    for (const Command* command : allCommands)
        names.append(command->name);
    return names.join(", "_L1);
}

QString overview()
{
    QString text = u"usage: %1 COMMAND [OPTION...]\n\n"_s.arg(programName)
        + u"Publishes patches and launchers for a community's players.\n\nCommands:\n"_s;
    for (const Command* command : allCommands)
        text += u"  %1 %2.\n"_s.arg(command->name, -15).arg(command->summary);
    return text
        + u"\n%1 COMMAND --help tells about one of them.\n"
          "Exit codes: 0 fine, 1 findings, 2 usage, 3 input or output failed.\n"_s.arg(programName);
}

/// The parser prints the program's path before the command; people type neither.
QString helpOf(const Command& command, const QCommandLineParser& parser)
{
    QString help = parser.helpText();
    const qsizetype end = help.indexOf(u'\n');
    const qsizetype options = help.indexOf(u"[options]"_s);
    const QString rest
        = options >= 0 && options < end ? help.sliced(options, end - options) : u""_s;
    return u"Usage: %1 %2 %3"_s.arg(programName, command.name, rest).trimmed() + help.sliced(end);
}

ExitCode
runCommand(const Command& command, const QStringList& arguments, QIODevice& result, Output& output)
{
    QCommandLineParser parser;
    const QCommandLineOption help({ u"h"_s, u"help"_s }, u"Shows this help."_s);
    const QCommandLineOption json(
        u"json"_s, u"Writes the result as one JSON document, for machines."_s);
    parser.addOptions({ help, json });
    command.configure(parser);
    const bool accepted = parser.parse(QStringList{ programName } + arguments);
    if (parser.isSet(json))
        output.setForm(Output::Form::Json);
    if (parser.isSet(help)) {
        result.write(helpOf(command, parser).toUtf8());
        return ExitCode::Fine;
    }
    ExitCode code = ExitCode::Usage;
    if (accepted)
        code = command.run(parser, output);
    else
        output.error(u"%1 (%2 %3 --help tells all options)"_s.arg(
            parser.errorText(), programName, command.name));
    output.finish(code);
    return code;
}

} // namespace

ExitCode runCommandLine(const QStringList& arguments, QIODevice& result, QIODevice& messages)
{
    const QString word = arguments.value(0);
    if (word == "--help"_L1 || word == "-h"_L1) {
        result.write(overview().toUtf8());
        return ExitCode::Fine;
    }
    if (word == "--version"_L1) {
        result.write(u"%1 %2\n"_s.arg(programName, QLatin1StringView(HALDEN_VERSION)).toUtf8());
        return ExitCode::Fine;
    }
    const auto* const found
        = std::find_if(allCommands.begin(), allCommands.end(), [&](const Command* command) {
              return command->name == word;
          });
    Output output(result, messages);
    if (found != allCommands.end())
        return runCommand(**found, arguments.mid(1), result, output);
    if (arguments.contains("--json"_L1))
        output.setForm(Output::Form::Json);
    if (word.isEmpty() || word == "--json"_L1)
        output.error(u"give a command, one of %1"_s.arg(namesOfCommands()));
    else
        output.error(u"there is no command \"%1\"; give one of %2"_s.arg(word, namesOfCommands()));
    messages.write(overview().toUtf8());
    output.finish(ExitCode::Usage);
    return ExitCode::Usage;
}

} // namespace Publisher
