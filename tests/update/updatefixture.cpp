#include "tests/update/updatefixture.h"

#include "core/settingshandler.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/timezone.h"

#include <QFile>
#include <QSettings>
#include <QTest>

#include <ctime>

using namespace TestSupport;

namespace UpdateFixture {

void writeManifest(const QString& manifestName, const QByteArray& content)
{
    static qint64 manifestsWritten = 0;
    writeFile(settingsPath(manifestName), content);
    setModificationTime(
        settingsPath(manifestName),
        QDateTime::fromSecsSinceEpoch(1'100'000'000 + ++manifestsWritten));
}

void writeManifest(const QString& manifestName, const QStringList& rows)
{
    writeManifest(manifestName, rows.join(u'\n').toUtf8() + '\n');
}

void addRealm(const QString& clientPath, bool testRealm)
{
    SettingsHandler::addClient("Halden", "logon.tarnwick.example", clientPath, testRealm);
}

void setDeveloperMode(bool on)
{
    QSettings store(settingsPath("realms.ini"), QSettings::IniFormat);
    store.setValue("selected_realm/dev", on);
}

QString cachePath(const QString& relativePath)
{
    return ApplicationFolder::path("ClientDataStorage/" + relativePath);
}

QString logged(QString path)
{
    return path.replace("\\", "\\\\");
}

QString settingsPath(const QString& fileName)
{
    return ApplicationFolder::path("Settings/" + fileName);
}

void setModificationTime(const QString& path, const QDateTime& time)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite)
        || !file.setFileTime(time, QFileDevice::FileModificationTime)) {
        qFatal("cannot set the time of %s: %s", qPrintable(path), qPrintable(file.errorString()));
    }
}

QDateTime someTime()
{
    return utc(QDate(2024, 7, 14), QTime(21, 30, 5));
}

void addKindRows()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("otherKind");
    for (const char* kind : { "live", "test" })
        QTest::newRow(kind) << kind << (qstrcmp(kind, "live") == 0 ? "test" : "live");
}

} // namespace UpdateFixture
