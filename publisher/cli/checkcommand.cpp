#include "publisher/check/check.h"
#include "publisher/check/checkserved.h"
#include "publisher/cli/commands.h"
#include "publisher/cli/findingreport.h"
#include "publisher/cli/options.h"
#include "publisher/cli/output.h"
#include "publisher/common/placeholder.h"
#include "publisher/common/progress.h"

#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>

#include <algorithm>
#include <optional>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

/// What is asked for on the command line.
struct Request {
    struct Manifest {
        QString path;
        Kind kind;
    };

    QList<Manifest> manifests;
    CheckedPlayers players;
    QString tree;
    bool details = false;
};

/// The manifests that stand in a server tree; the live one is always expected.
void takeTree(const QString& tree, Request& request)
{
    request.tree = tree;
    for (const Kind kind : { Kind::Live, Kind::Test }) {
        const QString path = tree + u'/' + ServerLayout::manifestName(kind);
        if (kind == Kind::Live || QFileInfo::exists(path))
            request.manifests.append({ path, kind });
    }
    const QString next = tree + u'/' + ServerLayout::nextManifestName();
    if (QFileInfo::exists(next))
        request.manifests.append({ next, Kind::Live });
}

/// What the file is called tells it, unless the admin does.
Kind kindOf(const QString& path, OptionReader& options)
{
    if (options.isSet(u"kind"_s))
        return options.kind();
    return QFileInfo(path).fileName() == ServerLayout::manifestName(Kind::Test) ? Kind::Test
                                                                                : Kind::Live;
}

Request requestOf(const QStringList& arguments, OptionReader& options)
{
    Request request;
    request.players = { .realms = options.realms(), .separator = options.separator() };
    for (const QString& argument : arguments) {
        if (QFileInfo(argument).isDir())
            takeTree(argument, request);
        else
            request.manifests.append({ argument, kindOf(argument, options) });
    }
    if (options.isSet(u"tree"_s))
        request.tree = options.text(u"tree"_s);
    request.details = options.isSet(u"details"_s);
    return request;
}

std::optional<Request> readRequest(const QCommandLineParser& parser, Output& output)
{
    if (!FindingReport::acceptsKnownOnly(parser, output))
        return std::nullopt;
    OptionReader options(parser);
    const Request request = requestOf(parser.positionalArguments(), options);
    options.kind();
    if (!options.fault().isEmpty())
        output.error(options.fault());
    else if (request.manifests.isEmpty())
        output.error(u"which server tree, or which manifest? Name one, or several"_s);
    else
        return request;
    return std::nullopt;
}

/// Whether everything that was named is there to be read.
bool isReadable(const Request& request, Output& output)
{
    if (!request.tree.isEmpty() && !QFileInfo(request.tree).isDir()) {
        output.error(
            u"there is no folder \"%1\"; --tree takes the folder that the web server serves"_s.arg(
                request.tree));
        return false;
    }
    for (const Request::Manifest& manifest : request.manifests) {
        const QFileInfo file(manifest.path);
        const bool expected = QDir(request.tree) == file.dir();
        if (!file.isReadable() && !expected) {
            output.error(
                u"\"%1\" cannot be read: %2. Name a server tree, or a manifest that you may read"_s
                    .arg(
                        manifest.path,
                        file.exists() ? u"no right to"_s : u"there is no such file or folder"_s));
            return false;
        }
    }
    return true;
}

QString word(Action action)
{
    switch (action) {
    case Action::FetchFile:
        return u"fetch"_s;
    case Action::CreateCacheFolder:
        return u"create-cache-folder"_s;
    case Action::RemoveFile:
        return u"remove-file"_s;
    case Action::RemoveFolder:
        return u"remove-folder"_s;
    case Action::InstallFile:
        return u"install"_s;
    case Action::CreateFolder:
        return u"create-folder"_s;
    }
    return {};
}

/// An effect of the rehearsal in words; removals name what they are aimed at,
/// whether or not a player has it.
class EffectView {
public:
    EffectView(const Effect& shown, const CheckedPlayers& players)
        : effect(shown)
        , path(CheckEffects::shownPath(shown.path, players.separator))
        , fromRoot(shown.fromRoot)
    {
        if (fromRoot)
            path.prepend(players.separator);
    }

    QJsonObject json(int realm) const
    {
        QJsonObject object{
            { u"action"_s, word(effect.action) },
            { u"entry"_s, effect.entry },
            { u"path"_s, path },
        };
        if (realm > 0)
            object.insert(u"realm"_s, realm);
        if (effect.action == Action::FetchFile)
            object.insert(u"from"_s, effect.source);
        if (effect.outcome == Outcome::Failed)
            object.insert(u"fails"_s, true);
        if (fromRoot)
            object.insert(u"fromRoot"_s, true);
        return object;
    }

    /// Without the realm entry, which the caller gathers.
    QString text() const
    {
        return u"  entry %1: %2 %3"_s.arg(effect.entry).arg(word(effect.action), path)
            + (effect.outcome == Outcome::Failed ? u" - fails"_s : QString());
    }

private:
    const Effect& effect;
    QString path;
    bool fromRoot;
};

bool isRemoval(const Effect& effect)
{
    return effect.action == Action::RemoveFile || effect.action == Action::RemoveFolder;
}

bool isPlaceholderAt(const CheckedManifest& manifest, qint64 n)
{
    return isPlaceholder(manifest.content.entry(n));
}

qsizetype
countOf(const CheckedManifest& manifest, const QList<Effect>& run, Action action, int realm)
{
    return std::count_if(run.cbegin(), run.cend(), [&](const Effect& effect) {
        return effect.action == action && effect.realm == realm
            && !(action == Action::InstallFile && isPlaceholderAt(manifest, effect.entry));
    });
}

/// What is the same for several realm entries stands on one line.
class EffectList {
public:
    void add(const QString& text, const QList<int>& alike)
    {
        if (!realms.contains(text))
            texts.append(text);
        for (const int realm : alike)
            realms[text].append(realm);
    }

    void print(Output& output) const
    {
        for (const QString& text : texts)
            output.line(text + realmNote(realms.value(text)));
    }

private:
    static QString realmNote(QList<qint64> numbers)
    {
        std::sort(numbers.begin(), numbers.end());
        numbers.resize(std::unique(numbers.begin(), numbers.end()) - numbers.begin());
        if (numbers == QList<qint64>{ 0 })
            return {};
        const QString list = Findings::numberList(numbers);
        return (numbers.size() == 1 ? u" (realm entry %1)"_s : u" (realm entries %1)"_s).arg(list);
    }

    QStringList texts;
    QHash<QString, QList<qint64>> realms;
};

/// The realm entries in whose clients it happens. Only what happens while a client
/// is installed is the same for several.
QList<int> realmsOf(const Effect& effect, const RehearsedRun& run)
{
    return effect.phase == Phase::Installation ? run.realmsLike(effect.realm)
                                               : QList<int>{ effect.realm };
}

/// Servers send a manifest in full to both runs of a start, whatever the player has.
qint64 bytesPerStart(const CheckedManifest& manifest)
{
    constexpr qint64 runsOfAStart = 2;
    return runsOfAStart * QFileInfo(manifest.path).size();
}

/// What the rehearsal comes to: numbers, and each removal by itself, since
/// removals differ from one realm entry to the next.
void describe(const Inspection& inspection, const Request& request, Output& output)
{
    const CheckedManifest& manifest = inspection.manifest;
    const RehearsedRun& run = inspection.run;
    const auto count = [&](Action action, int realm) {
        return countOf(manifest, run.effects, action, realm);
    };
    output.line(
        u"%1: each of the two update runs of a new player makes %2 folders in the cache, fetches "
        "%3 files and, in every client, creates %4 folders and installs %5 files, over those of "
        "the same name."_s.arg(manifest.subject)
            .arg(count(Action::CreateCacheFolder, 0))
            .arg(count(Action::FetchFile, 0))
            .arg(count(Action::CreateFolder, 1))
            .arg(count(Action::InstallFile, 1)));
    output.line(
        u"  A start of a player who has everything fetches %1: the manifest, in both runs."_s.arg(
            humanSize(bytesPerStart(manifest))));
    EffectList list;
    for (const Effect& effect : run.effects) {
        const bool aimsAtNothing = effect.phase == Phase::Reconciliation
            && removesOnlyByPlaceholders(manifest.content.entry(effect.entry));
        if (request.details || (isRemoval(effect) && !aimsAtNothing))
            list.add(EffectView(effect, request.players).text(), realmsOf(effect, run));
    }
    list.print(output);
}

/// Every effect, in the order in which it happens.
QJsonArray effectsToJson(const RehearsedRun& run, const CheckedPlayers& players)
{
    QJsonArray effects;
    for (const Effect& effect : run.effects) {
        if (effect.phase != Phase::Installation)
            effects.append(EffectView(effect, players).json(effect.realm));
    }
    for (int realm = 1; realm <= run.likeRealm.size(); ++realm) {
        for (const Effect& effect : run.effects) {
            if (effect.phase == Phase::Installation && effect.realm == run.likeRealm.at(realm - 1))
                effects.append(EffectView(effect, players).json(realm));
        }
    }
    return effects;
}

QJsonObject toJson(const Inspection& inspection, const Request& request)
{
    const CheckedManifest& manifest = inspection.manifest;
    const QJsonArray effects = effectsToJson(inspection.run, request.players);
    return {
        { u"manifest"_s, manifest.subject },
        { u"kind"_s, ServerLayout::word(manifest.kind) },
        { u"entries"_s, manifest.content.count() },
        { u"realms"_s, request.players.realms },
        { u"bytesPerStart"_s, bytesPerStart(manifest) },
        { u"effects"_s, effects },
    };
}

/// What is served besides patches; its notes are shown at once.
QList<Finding> servedFindings(const QString& tree, Output& output)
{
    const CheckServed::Result served = CheckServed::inspect(tree);
    if (served.isInfoLaidOut)
        output.set(u"infoLaidOut"_s, *served.isInfoLaidOut);
    for (const QString& note : served.notes)
        output.line(note);
    return served.findings;
}

ExitCode inspect(const Request& request, const QCommandLineParser& parser, Output& output)
{
    QList<Finding> found;
    QJsonArray manifests;
    for (const Request::Manifest& named : request.manifests) {
        const Inspection inspection = Check::inspect(
            named.path, QFileInfo(named.path).fileName(), named.kind, request.players,
            request.tree);
        describe(inspection, request, output);
        if (output.form() == Output::Form::Json)
            manifests.append(toJson(inspection, request));
        found += inspection.findings;
    }
    if (!request.tree.isEmpty())
        found += servedFindings(request.tree, output);
    output.set(u"manifests"_s, manifests);
    return FindingReport::conclude(found, parser, output);
}

void configure(QCommandLineParser& parser)
{
    parser.setApplicationDescription(
        u"Says what an update run will fetch, create, overwrite and delete at the players', and "
        "where it would go wrong. TREE is a server's folder, with its manifests and files."_s);
    parser.addPositionalArgument(
        u"manifest"_s, u"Server trees or manifests."_s, u"TREE|MANIFEST..."_s);
    parser.addOptions({
        { u"tree"_s, u"Compares a single manifest with the files of this server tree."_s,
          u"TREE"_s },
        { u"details"_s, u"Lists every effect, not the removals only."_s },
    });
    Options::addKind(
        parser,
        u"What a single manifest is, live or test; by default patchTest.ini is the test one."_s);
    Options::addPlayers(parser, u"Players have up to this many realm entries (default 16)."_s);
    FindingReport::addOptions(parser);
}

ExitCode run(const QCommandLineParser& parser, Output& output)
{
    const std::optional<Request> request = readRequest(parser, output);
    if (!request)
        return ExitCode::Usage;
    if (!isReadable(*request, output))
        return ExitCode::InputOutput;
    return inspect(*request, parser, output);
}

} // namespace

const Command checkCommand{ "check"_L1, "rehearses a manifest before it goes live"_L1, configure,
                            run };

} // namespace Publisher
