#pragma once

#include "publisher/common/progress.h"
#include "publisher/fleet/member.h"

#include <QList>

namespace Publisher {

/// What a server needs before it may get the new manifests.
struct ContentPlan {
    /// Not there, and asked for by no player: copied to their places, where they may
    /// lie in part for a while.
    QStringList add;
    /// There with another size, or missing although the server's own manifest names
    /// them: copied beside and moved into place whole.
    QStringList replace;
    /// All that players may be told of only now, whoever has brought it.
    QStringList verify;
    Progress::Count toCopy;
    Progress::Count toVerify;

    static ContentPlan of(const Member& member, const PushedTree& tree);
};

/// The patch files of a publication on their way to a server.
namespace Content {

[[nodiscard]] Problem
copy(Member& member, const PushedTree& tree, const ContentPlan& plan, Progress& progress);
/// Copies files beside their places and moves them there.
[[nodiscard]] Problem
replace(Member& member, const PushedTree& tree, const QStringList& files, Progress& progress);
/// Asks for all that is to be verified by each of the server's addresses and compares
/// hashes. Files that arrive as something else are added to `wrong`.
[[nodiscard]] Problem verify(
    Member& member, const PushedTree& tree, const QStringList& files, int secondsOfSilence,
    Progress& progress, QStringList& wrong);

} // namespace Content

} // namespace Publisher
