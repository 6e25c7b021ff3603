#pragma once

#include "publisher/command.h"

/// Publishes the launcher's own files.
class BuildLauncherCommand : public Command {
public:
    QString name() const override;
    QString summary() const override;
    void configure(QCommandLineParser& parser) const override;
    ExitCode run(const QCommandLineParser& parser, Output& output) override;
};
