#pragma once

#include "publisher/build/sourcetree.h"
#include "publisher/common/filework.h"
#include "publisher/common/publication.h"

#include <QHash>
#include <QList>
#include <QString>

namespace Publisher {

class HashCache;
class Progress;
struct BuildRequest;

/// A source file on its way to the server folder.
struct StagedFile {
    SourceFile file;
    QString md5 = {};
    /// What lies in its place on the server.
    FileFingerprint served = {};
    /// The thread that has made a copy of it, ready to be moved to its place;
    /// negative when the file is there already or nothing is to be written.
    int copiedBy = -1;
    /// Whether a right copy was in its place before, or has been written there now.
    bool inPlace = false;
    bool isPlaced = false;
    Problem problem = {};

    /// Where it belongs, relative to the server folder.
    QString serverPath(Kind kind) const;
};

/// Hashes the source's files and copies what the server folder lacks, on all
/// cores, into a folder beside the published files. Small new ones go to their
/// addresses at once, where no live manifest leads. Publishes nothing.
class Staging {
public:
    /// `folder` takes the copies. Everything given must outlive the object.
    Staging(
        const BuildRequest& request, const QHash<QString, PublishedFile>& published,
        const HashCache& cache, QString folder);

    QList<StagedFile> run(QList<SourceFile> files);
    /// Where the copy of an item is kept.
    static QString copyOf(const QString& folder, int thread, qsizetype number);

private:
    /// Where a copy would be made, and by which thread.
    struct Shelf {
        int thread;
        QString path;
    };

    void stage(StagedFile& item, const Shelf& shelf, Progress& progress) const;
    void read(StagedFile& item, const Shelf& shelf, Progress& progress) const;
    void readAndPlace(StagedFile& item, const Shelf& shelf, Progress& progress) const;
    void place(StagedFile& item, const Shelf& shelf, const QByteArray& content) const;
    bool isLive(const StagedFile& item) const;
    static void take(StagedFile& item, const FileWork::Digest& digest);
    void compareWithTree(StagedFile& item, const Shelf& shelf) const;
    bool isCertainlyNew(const SourceFile& file) const;
    bool mayHaveTwin(const SourceFile& file) const;
    QString twinOf(const StagedFile& item) const;
    QString hashInTree(const QString& path, const FileFingerprint& fingerprint) const;

    const BuildRequest& request;
    const QHash<QString, PublishedFile>& published;
    const HashCache& cache;
    QString folder;
    Kind otherKind;
    /// What the other kind publishes, whose equal files are shared.
    QHash<QString, PublishedFile> other;
};

} // namespace Publisher
