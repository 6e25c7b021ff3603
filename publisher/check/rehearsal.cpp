#include "publisher/check/rehearsal.h"

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

/// Deletes a file or a folder in the tree and says what came of it.
void playRemoval(RehearsalTree& tree, Effect& effect)
{
    if (effect.action == Action::RemoveFolder)
        effect.deleted = tree.removeFolder(effect.path);
    else if (tree.removeFile(effect.path))
        effect.deleted.append(effect.path);
    effect.outcome = effect.deleted.isEmpty() ? Outcome::Nothing : Outcome::Deleted;
}

void playFolder(RehearsalTree& tree, Effect& effect)
{
    const bool there = tree.isFolder(effect.path);
    if (!tree.makePath(effect.path))
        effect.outcome = Outcome::Failed;
    else
        effect.outcome = there ? Outcome::Nothing : Outcome::Created;
}

/// The body goes to a sibling with the suffix "-new", which is then renamed; it
/// stays beside a target that cannot be replaced.
bool deliver(RehearsalTree& tree, const QString& target, const QString& digest)
{
    const QString temporary = target + "-new"_L1;
    if (!tree.writeFile(temporary, digest))
        return false;
    tree.removeFile(target);
    if (tree.exists(target) || !tree.writeFile(target, digest))
        return false;
    tree.removeFile(temporary);
    return true;
}

} // namespace

Kind RehearsedRealm::kind() const
{
    return testRealm ? Kind::Test : Kind::Live;
}

Rehearsal::Rehearsal(
    RehearsedPlayer rehearsedPlayer, std::optional<ManifestContent> liveManifest,
    std::optional<ManifestContent> testManifest, Server answers)
    : player(std::move(rehearsedPlayer))
    , layout(QString(), player.cacheFolder, player.separator)
    , live(std::move(liveManifest))
    , test(std::move(testManifest))
    , server(std::move(answers))
{
}

QList<Effect> Rehearsal::run(RehearsalTree& tree)
{
    QList<Effect> effects = reconcile(tree);
    effects += download(tree);
    effects += install(tree);
    return effects;
}

QList<Effect> Rehearsal::reconcile(RehearsalTree& tree)
{
    QList<Effect> effects = reconcileKind(tree, Kind::Live);
    if (player.developer)
        effects += reconcileKind(tree, Kind::Test);
    return effects;
}

QList<Effect> Rehearsal::reconcileKind(RehearsalTree& tree, Kind kind)
{
    tree.makeFolder(player.cacheFolder);
    tree.makeFolder(layout.cacheKindFolder(ServerLayout::word(kind)));
    QList<Effect> effects;
    const ManifestContent* content = manifest(kind);
    for (qint64 n = 1; content && n <= content->count(); ++n) {
        Effect effect = removalByNumber(kind, n);
        switch (content->entry(n).action()) {
        case PatchAction::FileDownload:
            queueIfChanged(tree, kind, n);
            continue;
        case PatchAction::FolderCreate:
            effect = { Phase::Reconciliation, Action::CreateCacheFolder, kind, n };
            effect.path = layout.cachedFolder(ServerLayout::word(kind), content->entry(n));
            playFolder(tree, effect);
            break;
        case PatchAction::FileRemove:
        case PatchAction::FolderRemove:
            playRemoval(tree, effect);
            break;
        }
        effects.append(effect);
    }
    return effects;
}

void Rehearsal::queueIfChanged(const RehearsalTree& tree, Kind kind, qint64 n)
{
    const ManifestContent* content = manifest(kind);
    const PatchManifestEntry& entry = content->entry(n);
    const QString cached
        = layout.cachedFileFolder(ServerLayout::word(kind), entry) + u'/' + entry.name;
    if (tree.digest(cached).value_or(QString()) != entry.hash)
        queue.append({ kind, n });
}

/// While it reconciles, the launcher addresses the realm that bears the entry's
/// own number.
Effect Rehearsal::removalByNumber(Kind kind, qint64 n) const
{
    const PatchManifestEntry& entry = manifest(kind)->entry(n);
    const QString client = clientPath(n);
    const bool folder = entry.dirOnly;
    return {
        .phase = Phase::Reconciliation,
        .action = folder ? Action::RemoveFolder : Action::RemoveFile,
        .kind = kind,
        .entry = n,
        .realm = static_cast<int>(n),
        .path = folder ? layout.reconciledFolder(client, ServerLayout::word(kind), entry)
                       : layout.inClient(client, entry.pathOffset, entry.name),
        .fromRoot = client.isEmpty(),
    };
}

bool Rehearsal::hasDownloads() const
{
    return !queue.isEmpty();
}

QList<Effect> Rehearsal::download(RehearsalTree& tree)
{
    QList<Effect> effects;
    for (const Queued& item : std::exchange(queue, {}))
        effects.append(fetch(tree, item));
    return effects;
}

Effect Rehearsal::fetch(RehearsalTree& tree, const Queued& item) const
{
    const PatchManifestEntry& entry = manifest(item.kind)->entry(item.entry);
    const QUrl url = PatchLayout::patchFile(player.baseUrl, ServerLayout::word(item.kind), entry);
    Effect effect{ Phase::Download, Action::FetchFile, item.kind, item.entry };
    effect.path = layout.cachedFileFolder(ServerLayout::word(item.kind), entry) + player.separator
        + entry.name;
    effect.source = url.toString();
    const bool there = tree.exists(effect.path);
    const std::optional<QString> digest = server(url);
    if (!digest || !deliver(tree, effect.path, *digest))
        effect.outcome = Outcome::Failed;
    else
        effect.outcome = there ? Outcome::Overwritten : Outcome::Created;
    return effect;
}

QList<Effect> Rehearsal::install(RehearsalTree& tree) const
{
    QList<Effect> effects;
    for (int realm = 1; realm <= player.realms.size(); ++realm)
        effects += installRealm(tree, realm);
    return effects;
}

QList<Effect> Rehearsal::installRealm(RehearsalTree& tree, int realm) const
{
    const Kind kind = player.realms.at(realm - 1).kind();
    const ManifestContent* content = manifest(kind);
    QList<Effect> effects;
    for (qint64 n = 1; content && n <= content->count(); ++n) {
        Effect effect = removalByRealm(kind, n, realm);
        switch (content->entry(n).action()) {
        case PatchAction::FileDownload:
            effect = installFile(tree, kind, n, realm);
            break;
        case PatchAction::FolderCreate:
            effect.action = Action::CreateFolder;
            effect.fromRoot = false;
            effect.path = layout.inClient(
                clientPath(realm), content->entry(n).pathOffset, content->entry(n).name);
            playFolder(tree, effect);
            break;
        case PatchAction::FileRemove:
        case PatchAction::FolderRemove:
            playRemoval(tree, effect);
            break;
        }
        effects.append(effect);
    }
    return effects;
}

/// While it installs, the launcher takes the name from the entry numbered like
/// the realm.
Effect Rehearsal::removalByRealm(Kind kind, qint64 n, int realm) const
{
    const ManifestContent* content = manifest(kind);
    const PatchManifestEntry& entry = content->entry(n);
    return {
        .phase = Phase::Installation,
        .action = entry.dirOnly ? Action::RemoveFolder : Action::RemoveFile,
        .kind = kind,
        .entry = n,
        .realm = realm,
        .path = layout.inClient(clientPath(realm), entry.pathOffset, content->name(realm)),
        .fromRoot = clientPath(realm).isEmpty(),
    };
}

Effect Rehearsal::installFile(RehearsalTree& tree, Kind kind, qint64 n, int realm) const
{
    const PatchManifestEntry& entry = manifest(kind)->entry(n);
    Effect effect{ Phase::Installation, Action::InstallFile, kind, n, realm };
    effect.source
        = layout.cachedFileFolder(ServerLayout::word(kind), entry) + player.separator + entry.name;
    effect.path
        = PatchLayout::installFolder(clientPath(realm), entry) + player.separator + entry.name;
    const bool removed = tree.removeFile(effect.path);
    const std::optional<QString> digest = tree.digest(effect.source);
    const bool copied = digest && !tree.exists(effect.path) && tree.writeFile(effect.path, *digest);
    if (copied)
        effect.outcome = removed ? Outcome::Overwritten : Outcome::Created;
    else
        effect.outcome = removed ? Outcome::Deleted : Outcome::Failed;
    return effect;
}

QString Rehearsal::clientPath(qint64 realm) const
{
    return realm <= player.realms.size() ? player.realms.at(realm - 1).clientPath : QString();
}

const ManifestContent* Rehearsal::manifest(Kind kind) const
{
    const std::optional<ManifestContent>& content = kind == Kind::Test ? test : live;
    return content ? &*content : nullptr;
}

} // namespace Publisher
