#pragma once

#include "publisher/command.h"

/// Publishes a folder of patch files.
class BuildCommand : public Command {
public:
    QString name() const override;
    QString summary() const override;
    void configure(QCommandLineParser& parser) const override;
    ExitCode run(const QCommandLineParser& parser, Output& output) override;
};
