#pragma once

#include "publisher/common/exitcode.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

/// One start of halden-publish, within this process.
struct CommandRun {
    explicit CommandRun(const QStringList& arguments);

    Publisher::ExitCode code = Publisher::ExitCode::Fine;
    /// The result, and its members where "--json" was asked for.
    QString text;
    QJsonObject json;
    QString messages;

    /// "identifier subject" of each finding, sorted: answers come in any order.
    QStringList findings() const;
};
