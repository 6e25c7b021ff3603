#pragma once

#include "publisher/sourcetree.h"

#include <QHash>
#include <QList>
#include <QString>

#include <functional>

class HashCache;
class Progress;
struct BuildRequest;
struct PublishedFile;

/// A source file on its way to the server folder.
struct StagedFile {
    SourceFile file;
    /// What the file looked like before it was read.
    QString stamp = {};
    QString md5 = {};
    /// Where it belongs, relative to the server folder.
    QString serverPath = {};
    /// Its copy, ready to be moved there; empty when the file is there already
    /// or nothing is to be written.
    QString copy = {};
    /// Whether a right copy was in its place before.
    bool inPlace = false;
    QString error = {};
};

/// Hashes the source's files and copies what the server folder lacks, on all
/// cores, into a folder beside the published files. Publishes nothing.
class Staging {
public:
    /// `folder` takes the copies. Everything given must outlive the object.
    Staging(
        const BuildRequest& request, const QHash<QString, PublishedFile>& published,
        const HashCache& cache, QString folder);

    QList<StagedFile> run(const QList<SourceFile>& files);

private:
    void
    inParallel(const QList<qsizetype>& order, const std::function<void(qsizetype)>& work) const;
    void stage(StagedFile& item, qsizetype number, Progress& progress) const;
    void read(StagedFile& item, const QString& copy, Progress& progress) const;
    void compareWithTree(StagedFile& item, const QString& copy) const;
    bool isCertainlyNew(const SourceFile& file) const;
    QString hashInTree(const QString& path) const;

    const BuildRequest& request;
    const QHash<QString, PublishedFile>& published;
    const HashCache& cache;
    QString folder;
};
