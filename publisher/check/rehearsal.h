#pragma once

#include "publisher/check/manifestcontent.h"
#include "publisher/check/rehearsaltree.h"
#include "publisher/common/serverlayout.h"
#include "update/patchlayout.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <functional>
#include <optional>

namespace Publisher {

/// One realm entry of a player.
struct RehearsedRealm {
    QString clientPath;
    bool testRealm = false;

    Kind kind() const;
};

/// A player whose update runs are rehearsed.
struct RehearsedPlayer {
    /// The patch cache, "ClientDataStorage", without trailing separator.
    QString cacheFolder;
    QString baseUrl;
    QList<RehearsedRealm> realms;
    /// Developer mode: the test manifest is reconciled as well.
    bool developer = false;
    QChar separator = u'/';
};

enum class Phase { Reconciliation, Download, Installation };

enum class Action {
    FetchFile,
    CreateCacheFolder,
    RemoveFile,
    RemoveFolder,
    InstallFile,
    CreateFolder
};

enum class Outcome { Nothing, Created, Overwritten, Deleted, Failed };

/// One thing that an update run does, in the order of the run.
struct Effect {
    Phase phase;
    Action action;
    /// Which manifest, and number of the entry.
    Kind kind;
    qint64 entry = 0;
    /// Realm entry whose client is meant, 0 for the cache. A removal may mean a
    /// realm that the player does not have.
    int realm = 0;
    /// As the launcher builds it.
    QString path = {};
    /// Address, or file in the cache.
    QString source = {};
    /// A removal whose realm has no client folder: its path starts at the root.
    bool fromRoot = false;
    Outcome outcome = Outcome::Nothing;
    /// Paths that a removal deletes, what lies deepest first.
    QStringList deleted = {};
};

/// Plays the update runs of one player on a tree. The launcher starts two runs
/// side by side: both reconcile, both download, both install.
class Rehearsal {
public:
    /// Digest of what the server delivers, nothing for a file that it lacks or
    /// that is empty: the launcher takes an empty answer for "not modified".
    using Server = std::function<std::optional<QString>(const QUrl&)>;

    Rehearsal(
        RehearsedPlayer player, std::optional<ManifestContent> live,
        std::optional<ManifestContent> test, Server server);

    /// First to last phase of one run. Downloads are what the reconciliation
    /// before them has found missing.
    QList<Effect> run(RehearsalTree& tree);

    QList<Effect> reconcile(RehearsalTree& tree);
    /// Whether the reconciliation has found anything to download.
    bool hasDownloads() const;
    QList<Effect> download(RehearsalTree& tree);
    QList<Effect> install(RehearsalTree& tree) const;
    /// The same for one realm entry.
    QList<Effect> installRealm(RehearsalTree& tree, int realm) const;

private:
    struct Queued {
        Kind kind;
        qint64 entry;
    };

    QList<Effect> reconcileKind(RehearsalTree& tree, Kind kind);
    void queueIfChanged(const RehearsalTree& tree, Kind kind, qint64 n);
    Effect removalByNumber(Kind kind, qint64 n) const;
    Effect removalByRealm(Kind kind, qint64 n, int realm) const;
    Effect fetch(RehearsalTree& tree, const Queued& item) const;
    Effect installFile(RehearsalTree& tree, Kind kind, qint64 n, int realm) const;
    QString clientPath(qint64 realm) const;
    const ManifestContent* manifest(Kind kind) const;

    RehearsedPlayer player;
    PatchLayout layout;
    std::optional<ManifestContent> live;
    std::optional<ManifestContent> test;
    Server server;
    QList<Queued> queue;
};

} // namespace Publisher
