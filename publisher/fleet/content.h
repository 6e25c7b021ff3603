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
    /// To bring once more what has not arrived as it is here.
    static ContentPlan again(const QStringList& files);
};

/// The patch files of a publication on their way to a server.
namespace Content {

/// Copies what is to be copied, asks by each of the server's addresses for what is to be
/// verified, as soon as it has arrived, and compares hashes. Files that arrive as
/// something else are added to `wrong`.
[[nodiscard]] Problem bring(
    Member& member, const PushedTree& tree, const ContentPlan& plan, int secondsOfSilence,
    Progress& progress, QStringList& wrong);
/// Whether some of all files are still handed out.
[[nodiscard]] Problem lookAgain(const Member& member, const PushedTree& tree, int secondsOfSilence);

} // namespace Content

} // namespace Publisher
