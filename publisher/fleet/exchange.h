#pragma once

#include "publisher/fleet/member.h"

#include <QDateTime>

#include <optional>

namespace Publisher {

class Clock;

/// The switch: manifests and launcher files take the place of the former ones on all
/// servers at once. Every server must have all that the manifests name.
///
/// Launchers ask with the date of their own copy, which is the time of its download, and
/// get what bears a later one. So a new file must be dated after the last moment at
/// which any server has handed out the former one, or a player keeps that; and a launcher
/// not after the first moment at which any server hands out the new one, or a player
/// fetches it twice, since any server may be asked next.
///
/// Manifests may be fetched twice. They get dated when all are in place.
///
/// Launcher files are taken away first, and for a while no server has any: launchers go
/// on with what they have. Half of that time lies on either side of the date, for
/// downloads under way and for players' clocks.
class Exchange {
public:
    /// `pause` in seconds. Nothing given is owned.
    Exchange(Members& members, const PushedTree& tree, int pause, Clock& clock);

    /// Whether anything changes on any server.
    bool isNeeded() const;
    // Both are false when a member has a problem.
    /// Lays all that changes beside its place, where no player sees it.
    bool stageAll();
    bool run();

    /// Files that this server gets, in the order in which they are exchanged.
    QStringList changesOf(const Member& member) const;
    /// Whether launcher files go away from all servers for a while.
    bool hasPause() const;

private:
    /// A launcher file on its way.
    struct Release {
        QString name;
        /// The one that it bears elsewhere already; nothing where it is nowhere.
        std::optional<QDateTime> date;
    };

    void planPlain();
    void planReleases();
    bool isBehind(const Member& member, const QString& name) const;
    /// What is to come at this server, and at no other from now on.
    bool hasNextToDrop(const Member& member) const;
    bool isAnyInterrupted() const;

    QStringList changes() const;
    [[nodiscard]] Problem stage(Member& member, const QString& drafts, const QDateTime& date) const;
    /// Why a file could not be laid there, where its former one may be the reason.
    [[nodiscard]] Problem withReason(const Member& member, Problem problem) const;
    /// Looks by what date a storage goes that dates by itself; `asked` is when it got files.
    [[nodiscard]] Problem
    judgeArrival(const Member& member, const QDateTime& arrival, const QDateTime& asked) const;
    bool placePlain();
    /// The manifest of the next publication, where the tree has none.
    bool dropNext();
    bool dateManifests();
    bool exchangeReleases();
    bool joinRelease(const Release& release);
    bool renewReleases(const QStringList& names);
    /// Until the dates have come under which these files have arrived.
    [[nodiscard]] Problem waitForArrivals(const Member& member, const QStringList& names);

    using Condition = std::function<bool(const Member&)>;
    using FileStep = std::function<Problem(Member&, const QString& name)>;
    /// Takes the files one after the other, at all these servers at once.
    bool forEachOf(const QStringList& names, const Condition& condition, const FileStep& step);

    Members& members;
    const PushedTree& tree;
    int pause;
    Clock& clock;
    QDateTime begun;
    /// Manifests and the text that some server lacks.
    QStringList plain;
    /// Manifests whose date is not to be trusted.
    QStringList undated;
    QList<Release> releases;
};

} // namespace Publisher
