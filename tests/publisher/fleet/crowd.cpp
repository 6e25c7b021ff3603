#include "tests/publisher/fleet/crowd.h"

#include "tests/publisher/buildfixture.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/certificateauthority.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

using namespace TestSupport;

namespace {

// In milliseconds; everybody starts twice more while the machine is busy.
constexpr int longest = 300'000;

QString logFile()
{
    return "/run/crowd.log";
}

} // namespace

Crowd::Crowd(const QStringList& servers, const QStringList& options)
{
    QFile::remove(logFile());
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(
        HALDEN_PLAYERS,
        QStringList{ "--until-told", "--starts", "2", "--authority",
                     trustedAuthority().certificateFile(), "--servers", servers.join(','),
                     "--truth", BuildFixture::server(), "--log", logFile() }
            + options);
    if (!process.waitForStarted())
        qFatal("the players do not come");
}

Crowd::~Crowd()
{
    process.kill();
    process.waitForFinished();
}

qint64 Crowd::requests() const
{
    return readFile(logFile()).count('\n');
}

void Crowd::awaitRequests(qint64 more) const
{
    const qint64 enough = requests() + more;
    if (!QTest::qWaitFor([&] { return requests() >= enough; }, longest))
        qFatal("the players ask nothing");
}

QJsonObject Crowd::end()
{
    process.closeWriteChannel();
    if (!process.waitForFinished(longest))
        qFatal("the players do not end");
    QJsonObject report = QJsonDocument::fromJson(process.readAllStandardOutput()).object();
    if (report.isEmpty())
        qFatal("the players report nothing");
    return report;
}

QString Crowd::harm(const QJsonObject& report)
{
    QJsonObject harm = report;
    for (const char* harmless :
         { "starts", "requests", "bytes", "statuses", "failures", "seconds", "peakKiB" })
        harm.remove(QString(harmless));
    const QStringList keys = harm.keys();
    for (const QString& key : keys) {
        const QJsonValue value = harm.value(key);
        if (value == QJsonValue(0) || value == QJsonValue(QJsonArray()))
            harm.remove(key);
    }
    return harm.isEmpty() ? QString() : QString(QJsonDocument(harm).toJson());
}
