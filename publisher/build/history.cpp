#include "publisher/build/history.h"

#include "publisher/common/filework.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSysInfo>

#include <algorithm>
#include <utility>

#ifndef Q_OS_WIN
#include <pwd.h>
#include <unistd.h>
#endif

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

QString userName()
{
#ifdef Q_OS_WIN
    return qEnvironmentVariable("USERNAME");
#else
    // Who has become root to publish is still the one who publishes.
    if (QString behind = qEnvironmentVariable("SUDO_USER"); !behind.isEmpty())
        return behind;
    const passwd* user = getpwuid(getuid());
    return user != nullptr ? QString::fromLocal8Bit(user->pw_name) : QString::number(getuid());
#endif
}

QByteArray contentOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

PublicationNote readNote(const QString& path)
{
    const QJsonObject object = QJsonDocument::fromJson(contentOf(path)).object();
    return { .time = QDateTime::fromString(object.value("time"_L1).toString(), Qt::ISODate),
             .who = object.value("who"_L1).toString(),
             .message = object.value("message"_L1).toString(),
             .command = object.value("command"_L1).toString() };
}

} // namespace

PublicationNote
PublicationNote::of(const QString& command, const QString& message, const QDateTime& time)
{
    return { .time = time,
             .who = userName() + u'@' + QSysInfo::machineHostName(),
             .message = message,
             .command = command };
}

QJsonObject PublicationNote::toJson() const
{
    return { { u"time"_s, time.toString(Qt::ISODate) },
             { u"who"_s, who },
             { u"message"_s, message },
             { u"command"_s, command } };
}

History::History(const QString& server, Kind kind)
    : livePath(server + u'/' + ServerLayout::manifestName(kind))
    , kindOfPatch(kind)
    , folder(server + u'/' + ServerLayout::historyFolder(kind))
{
}

QString History::fileOf(int number, const QString& suffix) const
{
    return folder + u'/' + QString::number(number) + suffix;
}

QList<HistoryEntry> History::stored() const
{
    static const QRegularExpression name(u"^([1-9][0-9]{0,8})\\.ini$"_s);
    QList<HistoryEntry> found;
    const QStringList files = QDir(folder).entryList(QDir::Files | QDir::Hidden);
    for (const QString& file : files) {
        const int number = name.match(file).captured(1).toInt();
        if (number > 0)
            found.append({ .number = number,
                           .manifestPath = folder + u'/' + file,
                           .note = readNote(fileOf(number, u".json"_s)) });
    }
    std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) {
        return a.number < b.number;
    });
    return found;
}

QList<HistoryEntry> History::entries() const
{
    QList<HistoryEntry> found = stored();
    const QByteArray live = contentOf(livePath);
    for (qsizetype i = found.size() - 1; i >= 0; --i) {
        if (live.isEmpty() || contentOf(found.at(i).manifestPath) != live)
            continue;
        found[i].isLive = true;
        found.resize(i + 1);
        break;
    }
    return found;
}

Publication History::publicationOf(const HistoryEntry& entry) const
{
    return readPublication(entry.manifestPath, kindOfPatch);
}

QList<Publication> History::latest(int count) const
{
    QList<Publication> publications;
    const QList<HistoryEntry> all = entries();
    for (auto entry = all.crbegin(); entry != all.crend() && publications.size() < count; ++entry)
        publications.append(publicationOf(*entry));
    return publications;
}

Problem History::record(const QByteArray& manifest, const PublicationNote& note) const
{
    const QList<HistoryEntry> all = entries();
    const QByteArray live = contentOf(livePath);
    const bool isNoted = live.isEmpty() || (!all.isEmpty() && all.constLast().isLive);
    const int next = all.isEmpty() ? 1 : all.constLast().number + 1;
    return inOrder(
        [&] { return FileWork::createFolder(folder); },
        [&] {
            return isNoted ? Problem() : keep(next, live, { .time = FileWork::dateOf(livePath) });
        },
        [&] { return keep(isNoted ? next : next + 1, manifest, note); });
}

Problem History::keep(int number, const QByteArray& manifest, const PublicationNote& note) const
{
    // An entry is there with its manifest, so that comes last.
    QFile::remove(fileOf(number, u".ini"_s));
    const QByteArray json = QJsonDocument(note.toJson()).toJson();
    return inOrder(
        [&] { return FileWork::store(fileOf(number, u".json"_s), json); },
        [&] { return FileWork::store(fileOf(number, u".ini"_s), manifest); });
}

} // namespace Publisher
