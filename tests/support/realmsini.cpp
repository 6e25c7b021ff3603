#include "tests/support/realmsini.h"

#include "core/settingshandler.h"
#include "tests/support/applicationfolder.h"

#include <QDateTime>
#include <QFile>

namespace TestSupport {

namespace {

/// Far in the past, so that no file written by the program has the same time.
QDateTime nextFileTime()
{
    static qint64 second = 0;
    return QDateTime::fromSecsSinceEpoch(1'000'000'000 + ++second);
}

QByteArray entryLines(int n, const RealmEntry& entry)
{
    const QByteArray prefix = QByteArray::number(n) + '-';
    return prefix + "realmName=" + entry.name + '\n' + prefix + "realmHost=" + entry.host + '\n'
        + prefix + "clientPath=" + entry.path + '\n' + prefix + "testRealm=" + entry.testRealm
        + '\n' + prefix + "language=" + entry.language + '\n';
}

} // namespace

QString realmsIniPath()
{
    return ApplicationFolder::path("Settings/realms.ini");
}

void writeRealmsIni(const QByteArray& content)
{
    writeFile(realmsIniPath(), content);
    QFile file(realmsIniPath());
    if (!file.open(QIODevice::ReadWrite)
        || !file.setFileTime(nextFileTime(), QFileDevice::FileModificationTime)) {
        qFatal("cannot set the time of %s", qPrintable(realmsIniPath()));
    }
}

QMap<QString, QByteArray> realmsIniValues()
{
    QMap<QString, QByteArray> values;
    QString section;
    const QList<QByteArray> lines = readFile(realmsIniPath()).split('\n');
    for (const QByteArray& line : lines) {
        const qsizetype equals = line.indexOf('=');
        if (line.startsWith('['))
            section = QString::fromUtf8(line.mid(1, line.indexOf(']') - 1));
        else if (equals > 0)
            values.insert(
                section + '/' + QString::fromUtf8(line.left(equals)),
                line.mid(equals + 1).trimmed());
    }
    return values;
}

QByteArray withSystemsLineEnds(QByteArray text)
{
#ifdef Q_OS_WIN
    text.replace("\n", "\r\n");
#endif
    return text;
}

QByteArray realmsIniWith(const QList<RealmEntry>& entries, const QByteArray& selectedRealm)
{
    QByteArray content = "[realms]\nsize=" + QByteArray::number(entries.size()) + '\n';
    for (int i = 0; i < entries.size(); ++i)
        content += entryLines(i + 1, entries.at(i));
    return content + "\n[selected_realm]\n" + selectedRealm;
}

QStringList storedRealmNames()
{
    QStringList names;
    const int count = SettingsHandler::getClientCount();
    for (int n = 1; n <= count; ++n)
        names.append(SettingsHandler::getRealmName(n));
    return names;
}

} // namespace TestSupport
