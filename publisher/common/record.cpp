#include "publisher/common/record.h"

#include "publisher/common/filework.h"
#include "publisher/common/publication.h"

#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace Publisher {

/// A manifest or program of a folder, and whatever else comes with it.
struct Record::Followed {
    const QString& server;
    const QString& name;
    const QDateTime& time;
    /// By their paths, what their MD5 has to be; empty where it may be any.
    QMap<QString, QByteArray> md5s = {};
};

namespace {

constexpr QLatin1StringView pathKey("path");
constexpr QLatin1StringView ownerKey("with");
constexpr QLatin1StringView sizeKey("size");
constexpr QLatin1StringView md5Key("md5");
constexpr QLatin1StringView sha256Key("sha256");
constexpr QLatin1StringView dateKey("date");
constexpr QLatin1StringView publishedKey("published");
constexpr QLatin1StringView goneKey("gone");

QString toText(const QDateTime& time)
{
    return time.toUTC().toString(Qt::ISODateWithMs);
}

QDateTime timeOf(const QJsonObject& line, QLatin1StringView key)
{
    return QDateTime::fromString(line.value(key).toString(), Qt::ISODateWithMs);
}

RecordedFile fileOf(const QJsonObject& line)
{
    return { .path = line.value(pathKey).toString(),
             .size = line.value(sizeKey).toInteger(-1),
             .md5 = line.value(md5Key).toString().toLatin1(),
             .sha256 = line.value(sha256Key).toString().toLatin1(),
             .date = timeOf(line, dateKey),
             .published = timeOf(line, publishedKey) };
}

QJsonObject lineOf(const QString& name, const RecordedFile& file)
{
    return { { ownerKey, name },
             { pathKey, file.path },
             { sizeKey, file.size },
             { md5Key, QString::fromLatin1(file.md5) },
             { sha256Key, QString::fromLatin1(file.sha256) },
             { dateKey, toText(file.date) },
             { publishedKey, toText(file.published) } };
}

QJsonObject goneLine(const QString& name, const QString& path, const QDateTime& time)
{
    return {
        { ownerKey, name }, { pathKey, path }, { goneKey, true }, { publishedKey, toText(time) }
    };
}

bool isWhole(const RecordedFile& file)
{
    constexpr qsizetype digitsOfMd5 = 32;
    constexpr qsizetype digitsOfSha256 = 64;
    return file.size >= 0 && file.md5.size() == digitsOfMd5 && file.sha256.size() == digitsOfSha256
        && file.date.isValid();
}

/// To the thousandth of a second, as the text has it.
QDateTime dateOf(const QString& path)
{
    return QDateTime::fromMSecsSinceEpoch(FileWork::dateOf(path).toMSecsSinceEpoch()).toUTC();
}

Problem readHashes(const QString& path, RecordedFile& read)
{
    QFile file(path);
    QCryptographicHash md5(QCryptographicHash::Md5);
    QCryptographicHash sha256(QCryptographicHash::Sha256);
    bool isRead = file.open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    QByteArray piece;
    for (read.size = 0; isRead && !(piece = file.read(FileWork::mostAtOnce)).isEmpty();) {
        md5.addData(piece);
        sha256.addData(piece);
        read.size += piece.size();
    }
    if (!isRead || file.error() != QFileDevice::NoError)
        return u"%1 cannot be read for the record: %2. See that it is there and that you may read "
               "it, and run the same command again"_s.arg(path, file.errorString());
    read.md5 = md5.result().toHex();
    read.sha256 = sha256.result().toHex();
    return {};
}

QString notAsPublished(const QString& path)
{
    return u"%1 is not what its manifest says, so it is not put on record. Publish its source "
           "folder with build --rehash, which repairs it"_s.arg(path);
}

} // namespace

Problem Record::read(const QByteArray& text)
{
    const QList<QByteArray> read = text.split('\n');
    for (qsizetype i = 0; i < read.size(); ++i) {
        if (!read.at(i).isEmpty() && !takeLine(read.at(i)))
            return u"line %1 is none of a record of publications"_s.arg(i + 1);
    }
    lines = text;
    if (!lines.isEmpty() && !lines.endsWith('\n'))
        lines += '\n';
    return {};
}

bool Record::takeLine(const QByteArray& line)
{
    const QJsonObject object = QJsonDocument::fromJson(line).object();
    const QString name = object.value(ownerKey).toString();
    const RecordedFile file = fileOf(object);
    if (file.path.isEmpty() || name.isEmpty() || !file.published.isValid())
        return false;
    if (object.value(goneKey).toBool()) {
        current[name].remove(file.path);
        return true;
    }
    if (!isWhole(file))
        return false;
    current[name].insert(file.path, file);
    if (file.path == name)
        all.append(file);
    return true;
}

QByteArray Record::text() const
{
    return lines;
}

qsizetype Record::newLines() const
{
    return added;
}

bool Record::knows(const QString& name) const
{
    return current.value(name).contains(name);
}

Record::Files Record::files(const QString& name) const
{
    return current.value(name);
}

std::optional<RecordedFile> Record::former(const QString& name, const QByteArray& sha256) const
{
    const auto found = std::find_if(all.crbegin(), all.crend(), [&](const RecordedFile& file) {
        return file.path == name && file.sha256 == sha256;
    });
    return found == all.crend() ? std::nullopt : std::optional(*found);
}

Problem
Record::followManifest(const QString& server, const QString& name, Kind kind, const QDateTime& time)
{
    Followed followed{ .server = server, .name = name, .time = time };
    const QString manifest = server + u'/' + name;
    const bool isThere = QFileInfo::exists(manifest);
    const Publication publication = isThere ? readPublication(manifest, kind) : Publication();
    for (const PublishedFile& file : publication.files) {
        // Launchers never ask for what has no hash.
        if (!file.hash.isEmpty())
            followed.md5s.insert(file.serverPath, file.hash.toLatin1());
    }
    const auto known = files(name);
    for (const RecordedFile& file : known) {
        if (!followed.md5s.contains(file.path) && (file.path != name || !isThere))
            append(goneLine(name, file.path, time));
    }
    for (auto due = followed.md5s.keyBegin(); due != followed.md5s.keyEnd(); ++due) {
        if (Problem problem = follow(followed, *due))
            return problem;
    }
    return isThere ? follow(followed, name) : Problem();
}

Problem Record::followProgram(const QString& server, const QString& name, const QDateTime& time)
{
    return follow({ .server = server, .name = name, .time = time }, name);
}

/// Nothing that is published is overwritten, so size and date tell patch files apart.
Problem Record::follow(const Followed& followed, const QString& path)
{
    const QString onDisk = followed.server + u'/' + path;
    const QByteArray due = followed.md5s.value(path);
    const RecordedFile before = files(followed.name).value(path);
    RecordedFile now{ .path = path, .date = dateOf(onDisk), .published = followed.time };
    if (!due.isEmpty() && before.date == now.date && before.size == QFileInfo(onDisk).size())
        return {};
    if (Problem problem = readHashes(onDisk, now))
        return problem;
    if (!due.isEmpty() && now.md5 != due)
        return notAsPublished(onDisk);
    if (before.sha256 != now.sha256 || before.date != now.date)
        append(lineOf(followed.name, now));
    return {};
}

void Record::append(const QJsonObject& line)
{
    const QByteArray text = QJsonDocument(line).toJson(QJsonDocument::Compact);
    takeLine(text);
    lines += text + '\n';
    ++added;
}

} // namespace Publisher
