#include "tests/faults/logcheck.h"

#include "app/constants.h"
#include "tests/support/runlog.h"

namespace {

const QString failure = "warning: ErrorNo:  QNetworkReply::";

QString downloadLine(Target target, const QString& folder, const QString& fileName)
{
    return QString("true QUrl(\"%1\") \"%2\" \"%3\"").arg(Targets::url(target), folder, fileName);
}

/// What every run logs, in this order.
QStringList milestones(const QString& folder)
{
    return { downloadLine(Target::Updater, folder, ""),
             downloadLine(Target::Launcher, folder, "Halden-Launcher.tmp"),
             downloadLine(Target::Manifest, folder + "/Settings", ""),
             "clientUpdateIsCalled",
             '"' + downloadBaseUrl + "\" \"patch.ini\"",
             "now emit clientDownloadComplete",
             TestSupport::RunLog::installs };
}

QList<qsizetype> positions(const QStringList& log, const QString& line)
{
    QList<qsizetype> found;
    for (qsizetype at = log.indexOf(line); at >= 0; at = log.indexOf(line, at + 1))
        found.append(at);
    return found;
}

/// Two runs side by side: the first of one line comes before the first of the
/// next, and the second before the second.
QStringList inOrder(const QStringList& log, const QStringList& lines)
{
    QStringList wrong;
    QList<qsizetype> previous{ -1, -1 };
    for (const QString& line : lines) {
        const QList<qsizetype> at = positions(log, line);
        if (at.size() != TestSupport::RunLog::runsPerStart)
            wrong.append(QString("%1 times, not twice: %2").arg(at.size()).arg(line));
        else if (at.at(0) < previous.at(0) || at.at(1) < previous.at(1))
            wrong.append("comes too early: " + line);
        else
            previous = at;
    }
    return wrong;
}

/// Lines that one call writes: nothing can come between them.
QStringList followedBy(const QStringList& log, const QString& first, const QStringList& beginnings)
{
    QStringList wrong;
    for (qsizetype i = 0; i < log.size(); ++i) {
        if (!log.at(i).startsWith(first))
            continue;
        for (qsizetype k = 0; k < beginnings.size(); ++k) {
            if (!log.value(i + 1 + k).startsWith(beginnings.at(k)))
                wrong.append(log.at(i) + " is not followed by " + beginnings.at(k));
        }
    }
    return wrong;
}

QStringList manifestWasOpenedOrMissed(const QStringList& log, const QString& folder)
{
    const QString manifest = '"' + folder + "/Settings/patch.ini\"";
    const auto opened = log.count(manifest);
    const auto missed = log.count("patchfile does not exist at:  " + manifest);
    return opened + missed == TestSupport::RunLog::runsPerStart
        ? QStringList()
        : QStringList("manifests do not add up");
}

} // namespace

namespace LogCheck {

QStringList wholeChain(const QStringList& log, const QString& launcherFolder)
{
    const QStringList lines = milestones(launcherFolder);
    QStringList wrong = inOrder(log, lines);
    const QString infoText = downloadLine(Target::InfoText, launcherFolder, "launcher.info");
    if (log.count(infoText) != 1 || log.indexOf(infoText) > log.indexOf(lines.constFirst()))
        wrong.append("the information text does not come first and once");
    wrong += manifestWasOpenedOrMissed(log, launcherFolder);
    wrong += followedBy(
        log, "Case4: File Download",
        { "check if hashEquals", "file:  ", "Client UpdateQueue size:  " });
    return wrong;
}

QStringList failures(const QStringList& log, const QString& url, const QString& error, int times)
{
    const QString expected
        = "warning: ErrorNo:  QNetworkReply::" + error + " for url:  \"" + url + '"';
    QStringList wrong;
    for (const QString& line : log) {
        if (line.startsWith(failure) && line.endsWith(" for url:  \"" + url + '"')
            && line != expected)
            wrong.append(line);
    }
    if (log.count(expected) != (error.isEmpty() ? 0 : times))
        wrong.append(QString("%1 times: %2").arg(log.count(expected)).arg(expected));
    return wrong
        + followedBy(log, expected, { "Request failed,  \"", "Headers: ", "got an answer" });
}

QStringList noOtherFailures(const QStringList& log, const QString& url)
{
    QStringList wrong;
    for (const QString& line : log) {
        if (line.startsWith(failure) && (url.isEmpty() || !line.endsWith('"' + url + '"')))
            wrong.append(line);
    }
    return wrong;
}

QStringList onlyDownloadWarnings(const QStringList& log)
{
    QStringList wrong;
    for (const QString& line : log) {
        if (line.startsWith("warning: ") && !line.startsWith(failure))
            wrong.append(line);
    }
    return wrong;
}

QStringList nothingBut(const QStringList& toolkitLog, const QString& expected)
{
    QStringList wrong;
    for (const QString& line : toolkitLog) {
        if (expected.isEmpty() || !line.startsWith("warning: " + expected))
            wrong.append(line);
    }
    return wrong;
}

} // namespace LogCheck
