#include "publisher/fleet/storage.h"

#include "publisher/common/filework.h"
#include "publisher/common/serverlayout.h"
#include "publisher/fleet/fleetfile.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryFile>

#include <utility>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

/// Names of files for rclone, which reads them from a file.
class NameList {
public:
    explicit NameList(const QStringList& names)
    {
        const QByteArray text = names.join(u'\n').toUtf8() + '\n';
        isWritten = file.open() && file.write(text) == text.size() && file.flush();
    }

    Problem problem() const
    {
        if (isWritten)
            return {};
        return u"no list of files can be written: %1. Make room in the folder for temporary "
               "files, or name another one in TMPDIR"_s.arg(file.errorString());
    }

    QStringList option() const
    {
        return { u"--files-from-raw"_s, file.fileName() };
    }

private:
    QTemporaryFile file;
    bool isWritten = false;
};

Problem problemOf(const QString& what, const Rclone::Outcome& outcome)
{
    if (outcome.isFine())
        return {};
    return u"%1: %2"_s.arg(what, outcome.error);
}

/// Runs it for these files, and not at all for none.
Problem runFor(
    const QStringList& files, const QString& what, const QStringList& arguments,
    const Rclone::Listener& listener = {})
{
    if (files.isEmpty())
        return {};
    const NameList names(files);
    if (Problem problem = names.problem())
        return problem;
    return problemOf(what, Rclone::run(arguments + names.option(), listener));
}

void takeListing(const QByteArray& json, QHash<QString, qint64>& sizes)
{
    const QJsonArray entries = QJsonDocument::fromJson(json).array();
    for (const auto& entry : entries)
        sizes.insert(entry["Path"_L1].toString(), entry["Size"_L1].toInteger());
}

} // namespace

Storage::Storage(QString remote)
    : root(std::move(remote))
    , isLocal(isLocalFolder(root))
{
}

QString Storage::stagingFolder()
{
    return u".halden-push"_s;
}

QString Storage::place(const QString& path) const
{
    if (path.isEmpty() || root.endsWith(u':') || root.endsWith(u'/'))
        return root + path;
    return root + u'/' + path;
}

Problem Storage::list(QHash<QString, qint64>& sizes) const
{
    const Rclone::Outcome outcome = Rclone::run(
        { u"lsjson"_s, u"--recursive"_s, u"--files-only"_s, u"--no-modtime"_s, u"--no-mimetype"_s,
          u"--filter"_s, u"+ /%1/**"_s.arg(ServerLayout::patchFolder()), u"--filter"_s,
          u"+ /%1/**"_s.arg(stagingFolder()), u"--filter"_s, u"- *"_s, root });
    // An empty server is none the worse for having no folder yet.
    if (outcome.isNothingThere())
        return {};
    takeListing(outcome.output, sizes);
    return problemOf(u"its files cannot be listed"_s, outcome);
}

Problem
Storage::fetch(const QStringList& files, const QString& localFolder, const QString& from) const
{
    return runFor(
        files, u"its files cannot be read"_s,
        { u"copy"_s, u"--no-traverse"_s, u"--ignore-times"_s, u"--use-server-modtime"_s,
          place(from), localFolder });
}

Problem Storage::add(
    const QString& localFolder, const QStringList& files, const Rclone::Listener& listener) const
{
    return runFor(
        files, u"patch files cannot be copied to it"_s,
        { u"copy"_s, u"--no-traverse"_s, u"--ignore-existing"_s, u"--ignore-checksum"_s,
          u"--sftp-set-modtime=false"_s, localFolder, root },
        listener);
}

Problem Storage::stage(
    const QString& localFolder, const QStringList& files, const Rclone::Listener& listener) const
{
    return runFor(
        files, u"files cannot be laid beside their places"_s,
        { u"copy"_s, u"--no-traverse"_s, u"--ignore-times"_s, localFolder, place(stagingFolder()) },
        listener);
}

Problem Storage::placeStagedContent(const QStringList& files) const
{
    QStringList belowPatchFolder;
    for (const QString& file : files)
        belowPatchFolder.append(file.sliced(ServerLayout::patchFolder().size() + 1));
    return runFor(
        belowPatchFolder, u"patch files cannot be moved to their places"_s,
        { u"move"_s, u"--no-traverse"_s, u"--ignore-times"_s,
          place(stagingFolder() + u'/' + ServerLayout::patchFolder()),
          place(ServerLayout::patchFolder()) });
}

Problem Storage::placeStaged(const QString& file) const
{
    const QString staged = place(stagingFolder() + u'/' + file);
    // Without the moment between removing and renaming that rclone has.
    if (isLocal)
        return FileWork::replace(staged, place(file));
    return problemOf(
        u"%1 cannot be moved into place"_s.arg(file),
        Rclone::run({ u"moveto"_s, u"--ignore-times"_s, staged, place(file) }));
}

Problem Storage::setDate(const QString& file, const QDateTime& date) const
{
    return problemOf(
        u"%1 cannot be dated"_s.arg(file),
        Rclone::run({ u"touch"_s, u"--no-create"_s, u"--timestamp"_s,
                      date.toUTC().toString(u"yyyy-MM-ddTHH:mm:ss"_s), place(file) }));
}

Problem Storage::remove(const QStringList& files) const
{
    return runFor(files, u"files cannot be removed"_s, { u"delete"_s, root });
}

Problem Storage::removeEmptyFolders() const
{
    return problemOf(
        u"empty folders cannot be removed"_s,
        Rclone::run({ u"rmdirs"_s, u"--leave-root"_s, place(ServerLayout::patchFolder()) }));
}

Problem Storage::removeStagingFolder() const
{
    const Rclone::Outcome outcome = Rclone::run({ u"purge"_s, place(stagingFolder()) });
    return outcome.isNothingThere()
        ? Problem()
        : problemOf(u"%1 cannot be removed"_s.arg(stagingFolder()), outcome);
}

} // namespace Publisher
