#pragma once

#include "tests/faults/target.h"

#include <QString>
#include <QStringList>

/// Whether the log of one start holds the lines that it must hold, in their
/// order, whatever has failed. Each function says what is wrong, nothing when
/// all is well.
namespace LogCheck {

/// Both update runs of the launcher in this folder, from the first download to
/// the last installed client.
QStringList wholeChain(const QStringList& log, const QString& launcherFolder);
/// This many failed downloads of an address, each with this network error and
/// the lines that belong to it. No error: no failure.
QStringList failures(const QStringList& log, const QString& url, const QString& error, int times);
/// Every failed download was one of this address.
QStringList noOtherFailures(const QStringList& log, const QString& url);
/// There is no other warning than those of failed downloads.
QStringList onlyDownloadWarnings(const QStringList& log);
/// The network library has nothing to say but what begins with `expected`.
QStringList nothingBut(const QStringList& toolkitLog, const QString& expected);

} // namespace LogCheck
