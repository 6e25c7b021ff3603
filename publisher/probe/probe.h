#pragma once

#include "publisher/common/finding.h"
#include "publisher/common/record.h"
#include "publisher/common/serverlayout.h"
#include "publisher/probe/answerrules.h"
#include "publisher/probe/inquiry.h"
#include "publisher/probe/recordcomparison.h"
#include "publisher/probe/treecomparison.h"

#include <QDateTime>
#include <QList>
#include <QMap>
#include <QObject>
#include <QString>
#include <QUrl>

#include <limits>
#include <optional>

namespace Publisher {

class Progress;
struct PatchFile;

/// What is asked of a live server.
struct ProbeRequest {
    /// Ends in "/".
    QUrl baseUrl;
    /// The test manifest and its files as well.
    bool test = false;
    /// The manifest of the next publication and its files as well.
    bool next = false;
    /// Downloads every file and compares its hash.
    bool deep = false;
    /// Asks for so many patch files of each manifest at most, spread over all of them.
    qsizetype mostPatchFiles = std::numeric_limits<qsizetype>::max();
    /// Folder that holds what should be served; empty when there is none here.
    QString tree;
    /// What has been published. Every manifest that it has is asked for.
    std::optional<Record> record = {};
    /// The text in the launcher's window; empty when it is not asked for.
    QUrl infoUrl;
    /// A certificate that ends sooner is a finding.
    int daysOfCertificate = 14;
    /// Gives up on a server that says nothing for so long.
    int secondsOfSilence = 60;
    /// Where one of several servers of this name is reached; the name leads there by
    /// itself otherwise.
    std::optional<ConnectAddress> connect = {};
};

/// What a server has sent for one file.
struct SeenFile {
    /// Lower-case hexadecimal; empty where only the beginning has been read.
    QByteArray md5;
    qint64 length = -1;
    QDateTime lastModified;
};

/// Asks a server what launchers will ask it and gathers what would go wrong. Which
/// answer leads to which question stands here, what is wrong with an answer in the
/// rules. Serves one request.
class Probe : public QObject {
    Q_OBJECT

public:
    explicit Probe(ProbeRequest request);

    void start();

    QList<Finding> findings() const;
    /// Days until the certificate ends, nothing without one.
    std::optional<qint64> certificateDays() const;
    /// SHA-256 of the server's own certificate in hexadecimal digits, empty without one.
    QString certificate() const;
    /// Roots of this machine that its chain can end in, the oldest first.
    QList<SeenCertificate> roots() const;
    /// Patch files, launcher files and the text for the window, as far as they have
    /// been asked for.
    qint64 filesAsked() const;
    /// Whether the server has answered at all.
    bool isReached() const;
    /// What has arrived, by the path on the server.
    QMap<QString, SeenFile> seen() const;
    /// What went wrong on this machine, as a sentence: then the findings are not
    /// complete. Empty when all went well.
    QString error() const;

signals:
    void finished();
    /// So many more files are about to be asked for.
    void filesFound(qint64 count);
    /// A body has been read so far, or to its end.
    void received(qint64 bytes);
    /// One of the files found has been asked for to the end.
    void fileDone();

private:
    void expect(qint64 count);
    void add(const std::optional<Finding>& finding);
    QUrl address(const QString& name) const;
    /// As a launcher without a copy asks.
    void askAnew(const QUrl& url, Inquiry::Body body, const Inquiry::Handler& handler);
    bool wantsManifest(bool isAskedFor, const QString& name) const;
    bool isUsable(const AskedFile& file, const ProbeAnswer& answer);
    void note(const QUrl& url, const ProbeAnswer& answer);

    void judgeChain(const QString& host);
    void takeFirstAnswer(const ProbeAnswer& answer);
    void explainFailure(const ProbeAnswer& failure);
    void askForOldVersions(const QString& error);
    void askWithoutTls(const QString& error);
    void askManifest(Kind kind, const QString& name);
    void takeManifest(Kind kind, const QString& name, const ProbeAnswer& answer);
    void askFilesOf(Kind kind, const QString& name, const QByteArray& manifest);
    void askInfo();
    void takeInfo(const ProbeAnswer& answer);
    void askLauncherFile(const QString& name);
    void takeLauncherFile(const QString& name, const ProbeAnswer& answer);
    void askForMissing(const QString& name);
    void askDates(const QString& name, const ProbeAnswer& answer);
    void askForCopied(const QString& name, const QList<QDateTime>& dates);
    void askPatchFile(const PatchFile& file, const QDateTime& ifModifiedSince);
    void takePatchFile(
        const PatchFile& file, const QDateTime& ifModifiedSince, const ProbeAnswer& answer);

    ProbeRequest asked;
    Inquiry inquiry;
    QList<SeenCertificate> trusted;
    TreeComparison comparison;
    RecordComparison onRecord;
    bool isServerReached = false;
    QString trouble;
    QDateTime serverTime;
    qint64 files = 0;
    QList<Finding> found;
    QMap<QString, SeenFile> seenFiles;
};

/// Returns when it has asked everything; the progress grows with what it finds.
void askAll(Probe& probe, Progress& progress);

} // namespace Publisher
