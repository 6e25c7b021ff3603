#include "publisher/check/checkeffects.h"

#include "publisher/common/placeholder.h"

#include <QHash>
#include <QMap>
#include <QSet>

#include <algorithm>
#include <functional>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

// Enough of a folder's installed entries to tell whether a removal hits one.
constexpr int mostEntriesLookedAt = 1'000;

QString clientFolder(int realm, QChar separator)
{
    return separator + "client "_L1 + QString::number(realm);
}

QString cacheFolder(QChar separator)
{
    return separator + "launcher"_L1 + separator + "ClientDataStorage"_L1;
}

/// What a player has whose first run is rehearsed.
RehearsalTree freshTree(const RehearsedPlayer& player)
{
    RehearsalTree tree(player.separator);
    tree.makePath(player.separator + "launcher"_L1);
    for (const RehearsedRealm& realm : player.realms)
        tree.makePath(realm.clientPath + player.separator + "Data"_L1);
    return tree;
}

/// A server that holds every file of the manifest with the hash that it names.
Rehearsal::Server completeServer(const CheckedManifest& manifest)
{
    QHash<QString, QString> hashes;
    for (qint64 n = 1; n <= manifest.content.count(); ++n) {
        const QUrl url = PatchLayout::patchFile(
            {}, ServerLayout::word(manifest.kind), manifest.content.entry(n));
        hashes.insert(url.toString(), manifest.content.entry(n).hash.toLower());
    }
    return [hashes](const QUrl& url) {
        return std::optional(hashes.value(url.toString()));
    };
}

/// The part of a place's path that each folder above it is made of, itself
/// included: "/a/b" gives "/a/b" and "/a".
QStringList selfAndAbove(const QString& place)
{
    QStringList paths;
    for (qsizetype end = place.size(); end > 0; end = place.lastIndexOf(u'/', end - 1))
        paths.append(place.left(end));
    return paths;
}

QString sentenceStart(const QList<qint64>& realms)
{
    return (realms.size() == 1 ? "For realm entry "_L1 : "For realm entries "_L1)
        + Findings::numberList(realms);
}

/// The folders that the manifest makes, and the files that have none.
class FolderCheck {
public:
    FolderCheck(const CheckedManifest& checked, QChar pathSeparator, const QList<Effect>& effects)
        : manifest(checked)
        , separator(pathSeparator)
        , run(effects)
    {
        for (qint64 n = 1; n <= manifest.content.count(); ++n)
            takePlaces(manifest.content.entry(n));
    }

    QList<Finding> findings()
    {
        for (const Effect& effect : run) {
            if (effect.phase == Phase::Download)
                checkDownload(effect);
            else if (effect.action == Action::InstallFile && effect.realm == 1)
                checkInstallation(effect);
        }
        return found;
    }

private:
    QString place(const QString& path) const
    {
        return RehearsalTree::canonical(path, separator);
    }

    void takePlaces(const PatchManifestEntry& entry)
    {
        const QString own = place(entry.pathOffset + u'/' + entry.name);
        if (entry.action() == PatchAction::FileDownload) {
            files.insert(own);
        } else if (entry.action() == PatchAction::FolderCreate) {
            const QStringList made = selfAndAbove(own);
            folders.unite(QSet<QString>(made.cbegin(), made.cend()));
        }
    }

    void checkDownload(const Effect& effect)
    {
        if (effect.outcome != Outcome::Failed) {
            fetched.insert(effect.entry);
            return;
        }
        const PatchManifestEntry& entry = manifest.content.entry(effect.entry);
        const QString offset = place(entry.pathOffset);
        if (offset.isEmpty() || folders.contains(offset))
            return; // two entries claim one place, which has a finding of its own
        const QStringList above = selfAndAbove(offset);
        const bool behindFile = std::any_of(above.cbegin(), above.cend(), [&](const QString& path) {
            return files.contains(path);
        });
        if (behindFile)
            add(FindingId::FileAsFolder, effect.entry,
                u"\"%1\" goes through a place where another entry installs a file, so \"%2\" can "
                "be stored nowhere."_s.arg(entry.pathOffset, entry.name));
        else
            add(FindingId::FolderMissing, effect.entry,
                u"No entry creates the folder \"%1\" in players' patch cache: \"%2\" is downloaded "
                "at every start and can never be stored, and the file of that name in their client "
                "is deleted."_s.arg(entry.pathOffset, entry.name));
    }

    void checkInstallation(const Effect& effect)
    {
        const PatchManifestEntry& entry = manifest.content.entry(effect.entry);
        const bool conflict = folders.contains(place(entry.pathOffset + u'/' + entry.name));
        if (effect.outcome != Outcome::Failed || !fetched.contains(effect.entry) || conflict)
            return;
        if (place(entry.pathOffset + u'/' + entry.name) == place(u"Data"_s)) {
            add(FindingId::TargetConflict, effect.entry,
                u"Every client has a folder \"Data\", so no file of this name can be installed."_s);
            return;
        }
        add(FindingId::FolderTooLate, effect.entry,
            u"The folder \"%1\" comes after \"%2\": in a client that lacks the folder, an update "
            "run cannot install the file before the next one."_s.arg(entry.pathOffset, entry.name));
    }

    void add(FindingId id, qint64 n, const QString& text)
    {
        found.append(manifest.finding(id, n, text));
    }

    const CheckedManifest& manifest;
    QChar separator;
    const QList<Effect>& run;
    QSet<QString> folders;
    QSet<QString> files;
    QSet<qint64> fetched;
    QList<Finding> found;
};

/// What happens to the client of one realm entry, and which removals matter.
class RealmCheck {
public:
    using Report = std::function<void(FindingId, qint64 entry, const QString& text)>;

    RealmCheck(
        const CheckedManifest& checked, QChar pathSeparator, int realmNumber,
        const QList<Effect>& effectsOfRealm)
        : manifest(checked)
        , separator(pathSeparator)
        , realm(realmNumber)
        , effects(effectsOfRealm)
    {
        for (const Effect& effect : effects)
            takeOrder(effect);
        for (qint64 n = 1; n <= manifest.content.count(); ++n) {
            if (!manifest.content.entry(n).save)
                wanted.insert(place(wantedPath(n)));
        }
    }

    void run(const Report& report)
    {
        for (const Effect& effect : effects) {
            if (effect.phase == Phase::Installation)
                checkInstallation(effect, report);
        }
        for (qint64 n = 1; n <= manifest.content.count(); ++n) {
            const PatchManifestEntry& entry = manifest.content.entry(n);
            if (!entry.save && !entry.name.isEmpty() && !isEffective(entry, place(wantedPath(n))))
                report(FindingId::RemovalNeverEffective, n, shown(wantedPath(n)));
        }
    }

private:
    QString place(const QString& path) const
    {
        return RehearsalTree::canonical(path, separator);
    }

    QString inClient(const QString& relative) const
    {
        return clientFolder(realm, separator) + u'/' + relative;
    }

    QString shown(const QString& path) const
    {
        return CheckEffects::shownPath(path, separator);
    }

    /// What the admin wants gone. A removal that lives on placeholders means
    /// their name.
    QString wantedPath(qint64 n) const
    {
        const PatchManifestEntry& entry = manifest.content.entry(n);
        const QString name
            = removesOnlyByPlaceholders(entry) ? manifest.content.name(1) : entry.name;
        return inClient(entry.pathOffset + u'/' + name);
    }

    /// Later effects overwrite earlier ones, so the last of each kind remains.
    void takeOrder(const Effect& effect)
    {
        const qint64 order = effect.phase == Phase::Installation ? effect.entry : 0;
        const QString where = place(effect.path);
        if (effect.action == Action::InstallFile)
            installed.insert(where, order);
        else if (effect.action == Action::RemoveFile)
            removedFiles.insert(where, order);
        else if (effect.action == Action::RemoveFolder)
            removedFolders.insert(where, order);
    }

    bool isEffective(const PatchManifestEntry& entry, const QString& where) const
    {
        qint64 last = -1;
        if (!entry.dirOnly)
            last = removedFiles.value(where, -1);
        const QStringList above = selfAndAbove(where);
        for (const QString& folder : above)
            last = std::max(last, removedFolders.value(folder, -1));
        return last >= 0 && (entry.dirOnly || installed.value(where, -1) <= last);
    }

    void checkInstallation(const Effect& effect, const Report& report)
    {
        const QString where = place(effect.path);
        if (effect.action == Action::InstallFile || effect.action == Action::CreateFolder)
            present.insert(where, effect.path);
        else if (effect.action == Action::RemoveFile)
            checkFileRemoval(effect, where, report);
        else
            checkFolderRemoval(effect, where, report);
    }

    void checkFileRemoval(const Effect& effect, const QString& where, const Report& report)
    {
        if (installed.value(where, -1) > effect.entry || manifest.content.name(realm).isEmpty())
            return;
        if (installed.contains(where))
            report(FindingId::RemovalHitsInstalledFile, effect.entry, shown(effect.path));
        else if (!wanted.contains(where))
            report(FindingId::RemovalHitsOtherName, effect.entry, shown(effect.path));
    }

    void checkFolderRemoval(const Effect& effect, const QString& where, const Report& report)
    {
        const PatchManifestEntry& entry = manifest.content.entry(effect.entry);
        if (where == place(inClient(entry.pathOffset)))
            report(FindingId::RemovalEmptiesFolder, effect.entry, shown(effect.path));
        else if (const QString hit = installedBelow(where, effect.entry); !hit.isEmpty())
            report(FindingId::RemovalHitsInstalledFile, effect.entry, shown(hit));
        else if (!wanted.contains(where))
            report(FindingId::RemovalHitsOtherName, effect.entry, shown(effect.path));
    }

    /// Something installed so far at the place or below it that no later entry
    /// puts back.
    QString installedBelow(const QString& where, qint64 n) const
    {
        int seen = 0;
        for (auto it = present.lowerBound(where);
             it != present.cend() && it.key().startsWith(where) && ++seen < mostEntriesLookedAt;
             ++it) {
            const bool below = it.key() == where || it.key().at(where.size()) == u'/';
            if (below && installed.value(it.key(), -1) <= n)
                return it.value();
        }
        return {};
    }

    const CheckedManifest& manifest;
    QChar separator;
    int realm;
    const QList<Effect>& effects;
    /// Places with the number of the last entry that acts there, 0 for the
    /// reconciliation.
    QHash<QString, qint64> installed;
    QHash<QString, qint64> removedFiles;
    QHash<QString, qint64> removedFolders;
    QSet<QString> wanted;
    /// Paths of what has been installed so far, by place.
    QMap<QString, QString> present;
};

/// Gathers what is the same for several realm entries into one finding.
class RealmFindings {
public:
    explicit RealmFindings(const CheckedManifest& checked)
        : manifest(checked)
    {
    }

    void add(FindingId id, qint64 entry, const QList<int>& realms, const QString& path)
    {
        Group& group = groups[{ entry, id }];
        if (group.realms.isEmpty())
            group.path = path;
        for (const int realm : realms)
            group.realms.append(realm);
    }

    QList<Finding> findings()
    {
        QList<Finding> found;
        for (auto group = groups.begin(); group != groups.end(); ++group) {
            std::sort(group->realms.begin(), group->realms.end());
            const auto& [entry, id] = group.key();
            found.append(manifest.finding(id, entry, sentence(id, *group)));
        }
        return found;
    }

private:
    struct Group {
        QList<qint64> realms;
        /// Of the first realm entry.
        QString path;
    };

    static QString sentence(FindingId id, const Group& group)
    {
        const QString start = sentenceStart(group.realms);
        switch (id) {
        case FindingId::RemovalNeverEffective:
            return u"%1 this removal leaves \"%2\" as it is, or a later entry puts it back."_s.arg(
                start, group.path);
        case FindingId::RemovalHitsInstalledFile:
            return u"%1 this removal deletes \"%2\", which an earlier entry has just put there."_s
                .arg(start, group.path);
        case FindingId::RemovalEmptiesFolder:
            return u"%1 the name to remove is missing, so the whole folder \"%2\" is deleted with "
                   "everything in it."_s.arg(
                       start, group.path.isEmpty() ? u"(the client folder itself)"_s : group.path);
        default:
            return u"%1 this removal takes the name from the entry of that number and deletes "
                   "\"%2\"."_s.arg(start, group.path);
        }
    }

    const CheckedManifest& manifest;
    QMap<std::pair<qint64, FindingId>, Group> groups;
};

QList<Effect> effectsOf(const QList<Effect>& run, int realm)
{
    QList<Effect> own;
    std::copy_if(run.cbegin(), run.cend(), std::back_inserter(own), [realm](const Effect& effect) {
        return effect.realm == realm;
    });
    return own;
}

bool isRemoval(const PatchManifestEntry& entry)
{
    return !entry.save;
}

QList<Finding> removalFindings(
    const CheckedManifest& manifest, const CheckedPlayers& players, const RehearsedRun& run)
{
    const QList<PatchManifestEntry>& entries = manifest.content.entries;
    // Nothing else can be wrong with what a manifest removes.
    if (std::none_of(entries.cbegin(), entries.cend(), isRemoval))
        return {};
    RealmFindings gathered(manifest);
    for (int realm = 1; realm <= players.realms; ++realm) {
        const QList<int> alike = run.realmsLike(realm);
        if (alike.isEmpty())
            continue;
        const QList<Effect> own = effectsOf(run.effects, realm);
        RealmCheck(manifest, players.separator, realm, own)
            .run([&](FindingId id, qint64 entry, const QString& path) {
                gathered.add(id, entry, alike, path);
            });
    }
    return gathered.findings();
}

/// Which realm entries a manifest treats alike.
class RealmClasses {
public:
    RealmClasses(const CheckedManifest& checked, const CheckedPlayers& players)
        : manifest(checked)
        , separator(players.separator)
        , isPlain(!hasRemovals())
        , isConfined(!leavesItsFolders())
    {
    }

    /// For each realm entry the first one that is like it.
    QList<int> of(int realms) const
    {
        QList<int> likeRealm;
        QHash<QString, int> firstOfName;
        for (int realm = 1; realm <= realms; ++realm) {
            int first = realm;
            if (isConfined && !isAimedAt(realm)) {
                first = firstOfName.value(nameFor(realm), realm);
                firstOfName.insert(nameFor(realm), first);
            }
            likeRealm.append(first);
        }
        return likeRealm;
    }

private:
    bool hasRemovals() const
    {
        const QList<PatchManifestEntry>& entries = manifest.content.entries;
        return std::any_of(entries.cbegin(), entries.cend(), isRemoval);
    }

    /// A path may lead from one client into another.
    bool leavesItsFolders() const
    {
        const auto climbs = [this](const PatchManifestEntry& entry) {
            return (entry.pathOffset.contains(".."_L1) || entry.name.contains(".."_L1))
                && RehearsalTree::split(entry.pathOffset + u'/' + entry.name, separator)
                       .contains(".."_L1);
        };
        const QList<PatchManifestEntry>& entries = manifest.content.entries;
        const QHash<qint64, QString>& further = manifest.content.furtherNames;
        return std::any_of(entries.cbegin(), entries.cend(), climbs)
            || std::any_of(further.cbegin(), further.cend(), [](const QString& name) {
                   return name.contains(".."_L1);
               });
    }

    /// While the cache is compared, a removal acts on the realm of its own number.
    bool isAimedAt(int realm) const
    {
        return realm <= manifest.content.count() && isRemoval(manifest.content.entry(realm));
    }

    /// What removals take from the entry with the realm's number.
    QString nameFor(int realm) const
    {
        return isPlain ? QString() : manifest.content.name(realm);
    }

    const CheckedManifest& manifest;
    QChar separator;
    bool isPlain;
    bool isConfined;
};

/// Removal n looks for realm entry n, and a player with fewer has none.
QList<Finding> rootFindings(
    const CheckedManifest& manifest, const CheckedPlayers& players, const QList<Effect>& run)
{
    QList<Finding> found;
    for (const Effect& effect : run) {
        const bool removal
            = effect.action == Action::RemoveFile || effect.action == Action::RemoveFolder;
        if (effect.phase != Phase::Reconciliation || !removal || effect.entry < 2
            || removesOnlyByPlaceholders(manifest.content.entry(effect.entry)))
            continue;
        found.append(manifest.finding(
            FindingId::RemovalFromRoot, effect.entry,
            u"Players with fewer than %1 realm entries have no client for it: the launcher deletes "
            "\"%2\" from the root of the drive."_s.arg(
                QString::number(effect.entry),
                players.separator + CheckEffects::shownPath(effect.path, players.separator))));
    }
    return found;
}

} // namespace

QList<int> RehearsedRun::realmsLike(int realm) const
{
    QList<int> realms;
    for (int other = 1; other <= likeRealm.size(); ++other) {
        if (likeRealm.at(other - 1) == realm)
            realms.append(other);
    }
    const bool ownOnly = realm < 1 || realm > likeRealm.size();
    return ownOnly ? QList<int>{ realm } : realms;
}

namespace CheckEffects {

QString shownPath(const QString& path, QChar separator)
{
    const QStringList walked = RehearsalTree::split(path, separator);
    QStringList names;
    for (const QString& name : walked) {
        if (name == ".."_L1 && !names.isEmpty())
            names.removeLast();
        else if (name != "."_L1 && name != ".."_L1)
            names.append(name);
    }
    qsizetype depth = 0; // of the folder that the path is shown from
    if (walked.value(0) == "launcher"_L1)
        depth = 2;
    else if (walked.value(0).startsWith("client "_L1))
        depth = 1;
    const QStringList base = walked.first(std::min(depth, walked.size()));
    qsizetype common = 0;
    while (common < base.size() && names.value(common) == base.at(common))
        ++common;
    names = names.mid(common);
    for (; common < depth; ++common)
        names.prepend(u".."_s); // it leads out, and must not look as if it did not
    return names.join(separator);
}

RehearsedRun firstRun(const CheckedManifest& manifest, const CheckedPlayers& players)
{
    const bool test = manifest.kind == Kind::Test;
    RehearsedPlayer player;
    player.cacheFolder = cacheFolder(players.separator);
    player.developer = test;
    player.separator = players.separator;
    for (int realm = 1; realm <= players.realms; ++realm)
        player.realms.append({ clientFolder(realm, players.separator), test });
    RehearsalTree tree = freshTree(player);
    Rehearsal rehearsal(
        player, test ? std::nullopt : std::optional(manifest.content),
        test ? std::optional(manifest.content) : std::nullopt, completeServer(manifest));
    RehearsedRun run;
    run.likeRealm = RealmClasses(manifest, players).of(players.realms);
    run.effects = rehearsal.reconcile(tree);
    run.effects += rehearsal.download(tree);
    for (int realm = 1; realm <= players.realms; ++realm) {
        if (run.likeRealm.at(realm - 1) == realm)
            run.effects += rehearsal.installRealm(tree, realm);
    }
    return run;
}

QList<Finding>
findings(const CheckedManifest& manifest, const CheckedPlayers& players, const RehearsedRun& run)
{
    return FolderCheck(manifest, players.separator, run.effects).findings()
        + removalFindings(manifest, players, run) + rootFindings(manifest, players, run.effects);
}

} // namespace CheckEffects

} // namespace Publisher
