#include "app/constants.h"
#include "publisher/common/finding.h"
#include "publisher/report/trouble.h"
#include "tests/publisher/accesslog.h"
#include "tests/publisher/buildfixture.h"
#include "tests/publisher/commandrun.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/httpsserver.h"
#include "tests/support/testmain.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSet>

using namespace TestSupport;
using namespace BuildFixture;
using namespace Publisher;

namespace {

QString page()
{
    return QString::fromUtf8(readFile(HALDEN_PAGE));
}

/// From this heading to the next one.
QString section(const QString& heading)
{
    const QString text = page();
    const qsizetype begin = text.indexOf("\n## " + heading);
    if (begin < 0)
        qFatal("the page has no section %s", qPrintable(heading));
    const qsizetype end = text.indexOf("\n## ", begin + 1);
    return text.mid(begin, end < 0 ? -1 : end - begin);
}

void collect(const QJsonValue& value, QSet<QString>& fields)
{
    const QJsonArray array = value.toArray();
    for (const QJsonValue element : array)
        collect(element, fields);
    const QJsonObject object = value.toObject();
    for (auto member = object.begin(); member != object.end(); ++member) {
        fields.insert(member.key());
        collect(member.value(), fields);
    }
}

/// Every field that comes out of these command lines.
QSet<QString> fieldsOf(const QList<QStringList>& commandLines)
{
    QSet<QString> fields;
    for (const QStringList& arguments : commandLines)
        collect(CommandRun(arguments + QStringList("--json")).json, fields);
    return fields;
}

QList<QStringList> publishing()
{
    return {
        { "build", source(), server(), "--no-flush", "--remove", "Data/old.mpq", "--record",
          ApplicationFolder::path("halden.record") },
        { "build", source(), server(), "--no-flush", "--kind", "both" },
        { "build", source(), server(), "--no-flush", "--remove", "Data/a.mpq" },
        { "build-launcher", server(), "--launcher", "/usr/bin/true", "--updater", "/usr/bin/true",
          "--no-flush" },
        { "history", server() },
        { "show", server(), "1" },
        { "rollback", server(), "1", "--dry-run" },
        { "estimate", server(), "--players", "1", "--line", "1" },
    };
}

/// A list of one server, which is there at this address and has nothing.
QString fleetOf(const QString& address, quint16 port)
{
    QString file = ApplicationFolder::path("fleet.ini");
    const QString text = QString("[web]\nremote = %1\naddress = %2\nconnect = 127.0.0.1:%3\n")
                             .arg(ApplicationFolder::path("web"), address)
                             .arg(port);
    writeFile(file, text.toUtf8());
    return file;
}

/// A wrong line, an answer with an error, and a publication that comes while the log is
/// written.
QString accessLog()
{
    const QDateTime date = QFileInfo(server("patch.ini")).lastModified();
    const qint64 published = AccessLog::at(0).secsTo(date);
    AccessLog log;
    log.addText("wrong\n");
    log.add({ .second = published - 1, .status = 404 });
    log.add({ .second = published + 1, .copy = published - 2, .file = published });
    return log.write();
}

/// A manifest with everything that an effect can tell.
QStringList checkOfAll()
{
    writeFile(
        ApplicationFolder::path("patch.ini"),
        "numberOfFiles=2\nfile1=a.mpq\nfile1-pathOffset=Missing\nfile1-hash=" + QByteArray(32, 'a')
            + "\nfile2=b\nfile2-save=false\n");
    writeFile(server("launcher.info"), "<p>Hallo");
    return { "check", server(), ApplicationFolder::path("patch.ini"), "--accept",
             "removal-from-root" };
}

} // namespace

/// The page's tables of words that scripts rely on.
class tst_PageTables : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        trustedAuthority();
        trustedCertificate();
    }

    void init()
    {
        ApplicationFolder::clear();
        put("Data/a.mpq", "a");
    }

    void everyFindingAndRefusalIsListed()
    {
        QStringList expected;
        for (auto [identifier, remedy] : Findings::all())
            expected.append(QString("| `%1` | %2 |").arg(identifier, remedy.replace('\\', "\\\\")));
        QStringList listed;
        const QStringList lines = section("8. ").split('\n');
        for (const QString& line : lines) {
            if (line.startsWith("| `"))
                listed.append(line);
        }
        QCOMPARE(listed, expected);
    }

    void everyTroubleIsListed()
    {
        QStringList expected;
        for (const auto& [identifier, remedy] : Troubles::all())
            expected.append(QString("| `%1` | %2 |").arg(identifier, remedy));
        QCOMPARE(section("12. ").split('\n').filter(QRegularExpression("^\\| `")), expected);
    }

    void everyFieldOfTheJsonIsListed()
    {
        HttpsServer web;
        web.listen(0);
        const QString address
            = QString("https://%1:%2/").arg(QUrl(downloadBaseUrl).host()).arg(web.port());
        const QString fleet = fleetOf(address, web.port());
        const QSet<QString> told = fieldsOf(
            publishing()
            + QList<QStringList>{ checkOfAll(),
                                  { "probe", address },
                                  { "probe", "--fleet", fleet },
                                  { "push", server(), "--fleet", fleet },
                                  { "report", accessLog(), "--tree", server() } });
        QSet<QString> listed;
        const QString text = section("9. ");
        static const QRegularExpression word("`([a-zA-Z0-9]+)`");
        for (auto match = word.globalMatch(text); match.hasNext();)
            listed.insert(match.next().captured(1));
        listed -= { "check", "probe", "rollback", "promote", "show", "history", "push", "report" };
        const auto sorted = [](const QSet<QString>& set) {
            QStringList list(set.cbegin(), set.cend());
            list.sort();
            return list;
        };
        QCOMPARE(sorted(told - listed), QStringList());
        QCOMPARE(sorted(listed - told), QStringList());
    }
};

HALDEN_TEST_MAIN(tst_PageTables)
#include "tst_pagetables.moc"
