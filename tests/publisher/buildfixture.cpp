#include "tests/publisher/buildfixture.h"

#include "publisher/build/history.h"
#include "publisher/common/filework.h"
#include "tests/support/applicationfolder.h"

#include <QFileInfo>

#include <filesystem>
#include <system_error>

using namespace TestSupport;
using namespace Publisher;

namespace BuildFixture {

namespace {

QString below(const QString& folder, const QString& relativePath)
{
    const QString path = relativePath.isEmpty() ? folder : folder + '/' + relativePath;
    return ApplicationFolder::path(path);
}

} // namespace

QString source(const QString& relativePath)
{
    return below("source", relativePath);
}

QString server(const QString& relativePath)
{
    return below("server", relativePath);
}

QMap<QString, QByteArray> servedFiles()
{
    QMap<QString, QByteArray> files = filesBelow(server());
    files.removeIf(
        [](const auto& file) { return file.key().startsWith(ServerLayout::historyFolder()); });
    return files;
}

void put(const QString& relativePath, const QByteArray& content)
{
    writeFile(source(relativePath), content);
}

StandingClock::StandingClock(const QDateTime& start)
    : time(start)
{
}

QDateTime StandingClock::now() const
{
    return time;
}

void StandingClock::waitUntil(const QDateTime& moment)
{
    ++waits;
    time = moment;
}

void StandingClock::forward(qint64 seconds)
{
    time = time.addSecs(seconds);
}

BuildRequest request()
{
    return {
        .source = source(),
        .server = server(),
        .kind = Kind::Live,
        .removals = { .files = {}, .folders = {}, .realms = 4 },
        .keep = 1,
        .flush = false,
    };
}

BuildReport published(const BuildRequest& wanted)
{
    // Ahead of every date that the test's files have, and another one each
    // time: the settings layer goes by size and date.
    static qint64 publications = 0;
    StandingClock clock(QDateTime::currentDateTimeUtc().addSecs(1000 * ++publications));
    BuildReport report;
    if (build(wanted, clock, report) != ExitCode::Fine)
        qFatal(
            "cannot publish: %s %s", qPrintable(report.error),
            qPrintable(idsOf(report.refusals).join(' ')));
    return report;
}

BuildReport published()
{
    return published(request());
}

QString placeOf(const QString& relativePath, const QString& kind)
{
    const QString last = md5(readFile(source(relativePath)));
    const QString folder = relativePath.section('/', 0, -2);
    const QString name = relativePath.section('/', -1);
    return "wow-client-patch/" + kind + '/' + (folder.isEmpty() ? last : folder + '/' + last) + '/'
        + name;
}

bool isSameFile(const QString& one, const QString& other)
{
    std::error_code error;
    return std::filesystem::equivalent(one.toStdU16String(), other.toStdU16String(), error);
}

QDateTime dateOf(const QString& path)
{
    return FileWork::dateOf(path);
}

void setDate(const QString& path, const QDateTime& date)
{
    if (const Problem problem = FileWork::setDate(path, date))
        qFatal("%s", qPrintable(*problem));
}

QStringList pathsOf(const QList<BuildReport::Item>& items)
{
    QStringList paths;
    for (const BuildReport::Item& item : items)
        paths.append(item.path);
    return paths;
}

QStringList idsOf(const QList<Finding>& refusals)
{
    QStringList ids;
    for (const Finding& refusal : refusals)
        ids.append(refusal.identifier());
    return ids;
}

QString reasonOf(const Finding& refusal)
{
    return refusal.text + ' ' + refusal.remedy();
}

} // namespace BuildFixture
