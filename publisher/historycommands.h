#pragma once

#include "publisher/command.h"

/// `history`.
class HistoryCommand : public Command {
public:
    QString name() const override;
    QString summary() const override;
    void configure(QCommandLineParser& parser) const override;
    ExitCode run(const QCommandLineParser& parser, Output& output) override;
};

/// `show`.
class ShowCommand : public Command {
public:
    QString name() const override;
    QString summary() const override;
    void configure(QCommandLineParser& parser) const override;
    ExitCode run(const QCommandLineParser& parser, Output& output) override;
};

/// `rollback`.
class RollbackCommand : public Command {
public:
    QString name() const override;
    QString summary() const override;
    void configure(QCommandLineParser& parser) const override;
    ExitCode run(const QCommandLineParser& parser, Output& output) override;
};

/// `promote`.
class PromoteCommand : public Command {
public:
    QString name() const override;
    QString summary() const override;
    void configure(QCommandLineParser& parser) const override;
    ExitCode run(const QCommandLineParser& parser, Output& output) override;
};
