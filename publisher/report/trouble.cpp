#include "publisher/report/trouble.h"

#include "publisher/report/logbook.h"
#include "publisher/report/shown.h"

#include <algorithm>
#include <array>
#include <functional>
#include <tuple>
#include <vector>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

constexpr std::size_t casesShown = 10;

struct Description {
    TroubleId id;
    const char* identifier;
    const char* meaning;
    const char* remedy;
};

constexpr std::array descriptions{
    Description{ TroubleId::LauncherLoop, "launcher-loop",
                 "players' launchers fetch themselves at every start",
                 "Where all do, run `halden-publish probe`: the server must answer 304 to copies "
                 "that are not older. Where few do, their updater cannot exchange the launcher: "
                 "another program holds it, or the folder may not be written to. Several players "
                 "behind one address may look alike." },
    Description{ TroubleId::FileAgain, "file-again",
                 "players fetch one and the same patch file again and again",
                 "Their scanner removes it, their disk is bad, or their client is changed by "
                 "another program; or several players share the address." },
    Description{ TroubleId::DownloadBroken, "download-broken",
                 "downloads of patch files and manifests that broke off",
                 "A few are players who closed the launcher. Many at one time: look at the "
                 "server's error log, its line and its time limits." },
    Description{ TroubleId::OnlineAndBehind, "online-and-behind",
                 "players who were online an hour after the latest publication and have not got "
                 "it",
                 "Look for a cache on the way, for servers with another publication, and for "
                 "download-broken." },
    Description{ TroubleId::ClockAhead, "clock-ahead",
                 "players whose copies are dated in the future",
                 "Their clocks are ahead, and a launcher that they fetched so stays until then; "
                 "`halden-publish build-launcher --renew` after that reaches them." },
    Description{ TroubleId::DatedAhead, "dated-ahead",
                 "answers with a file that is dated in the future",
                 "Set the clocks right, this machine's and the server's, and run `halden-publish "
                 "build --renew` and `build-launcher --renew`." },
    Description{ TroubleId::ServerError, "server-error", "answers with a server's error",
                 "Read the server's error log." },
    Description{ TroubleId::ClientError, "client-error", "answers that there is no such thing",
                 "A patch file among them: publish again with `halden-publish build`. All else is "
                 "strangers who try doors." },
    Description{ TroubleId::FileUnnamed, "file-unnamed",
                 "requests for patch files that no manifest of the tree names, its history "
                 "included",
                 "See that this tree is what the server serves. Else somebody has an old manifest, "
                 "or made the address up." },
    Description{ TroubleId::NoLauncher, "no-launcher", "requests that no launcher makes",
                 "Browsers, caches, searchers and scanners; nothing has to be done." },
};

const Description& descriptionOf(TroubleId id)
{
    return descriptions[static_cast<std::size_t>(id)];
}

/// Collects cases by how much they are.
class Cases {
public:
    void add(const Trouble::Case& one)
    {
        total += one.count;
        all.push_back(one);
    }

    Trouble trouble(TroubleId id)
    {
        std::sort(all.begin(), all.end(), [](const Trouble::Case& one, const Trouble::Case& other) {
            return one.count != other.count
                ? one.count > other.count
                : std::tie(one.player, one.path) < std::tie(other.player, other.path);
        });
        Trouble result{ .id = id, .count = total, .players = static_cast<qint64>(all.size()) };
        all.resize(std::min(all.size(), casesShown));
        result.cases = QList<Trouble::Case>(all.cbegin(), all.cend());
        return result;
    }

private:
    qint64 total = 0;
    std::vector<Trouble::Case> all;
};

Trouble
byPlayer(TroubleId id, const LogBook& book, const std::function<qint64(const PlayerRecord&)>& count)
{
    Cases cases;
    for (const PlayerRecord& player : book.players()) {
        if (const qint64 number = count(player); number > 0)
            cases.add({ .player = Shown::tag(player.tag), .count = number });
    }
    return cases.trouble(id);
}

Trouble byPath(TroubleId id, const TopTally& tally)
{
    Trouble result{ .id = id, .count = tally.total() };
    const auto entries = tally.top(casesShown);
    for (const TopTally::Entry& entry : entries)
        result.cases.append({ .path = Shown::path(entry.text), .count = entry.count });
    return result;
}

bool isLoop(const Had& had)
{
    return had.answers >= Troubles::answersOfALoop
        && (had.copies.isEmpty() || had.copies.first == had.copies.last
            || had.needless >= Troubles::answersOfALoop || had.copies.last >= had.times.first);
}

qint64 loopsOf(const PlayerRecord& player, const LogBook& book)
{
    qint64 answers = 0;
    for (const Had& had : player.had) {
        if (book.versions()[had.version].track == Track::Launcher && isLoop(had)
            && book.tallyOf(had.version).isWhole(had.bytes))
            answers += had.answers;
    }
    return answers;
}

Trouble fetchedAgain(const LogBook& book)
{
    Cases cases;
    book.fetches().forEach([&](std::uint32_t player, std::uint32_t file, std::uint32_t count) {
        if (count < Troubles::fetchesOfAFileAgain)
            return;
        cases.add({ .player = Shown::tag(book.players()[player].tag),
                    .path = Shown::path(book.files()[file].path),
                    .count = count });
    });
    return cases.trouble(TroubleId::FileAgain);
}

qint64 brokenDownloads(const LogBook& book)
{
    qint64 sum = 0;
    for (const LogBook::File& file : book.files())
        sum += file.tally.brokenOff();
    for (std::uint32_t version = 0; version < book.versions().size(); ++version) {
        if (book.versions()[version].isHeldToSize())
            sum += book.tallyOf(version).brokenOff();
    }
    return sum;
}

Trouble broken(const LogBook& book)
{
    Trouble result = byPlayer(TroubleId::DownloadBroken, book, [](const PlayerRecord& player) {
        return player.brokenOff;
    });
    // Whose they were does not always come out.
    result.count = brokenDownloads(book);
    return result;
}

/// What is counted by path, and by whom.
Trouble
errors(TroubleId id, const LogBook& book, const TopTally& paths, std::uint32_t PlayerRecord::*count)
{
    Trouble result = byPlayer(id, book, [=](const PlayerRecord& player) { return player.*count; });
    result.cases += byPath(id, paths).cases;
    return result;
}

} // namespace

QString Trouble::identifier() const
{
    return QLatin1StringView(descriptionOf(id).identifier);
}

QString Trouble::meaning() const
{
    return QLatin1StringView(descriptionOf(id).meaning);
}

QString Trouble::remedy() const
{
    return QLatin1StringView(descriptionOf(id).remedy);
}

namespace Troubles {

QList<std::pair<QString, QString>> all()
{
    QList<std::pair<QString, QString>> list;
    for (const Description& description : descriptions)
        list.append(
            { QLatin1StringView(description.identifier), QLatin1StringView(description.remedy) });
    return list;
}

QList<Trouble> in(const LogBook& book)
{
    const LogBook::Totals& totals = book.totals();
    QList<Trouble> found{
        byPlayer(
            TroubleId::LauncherLoop, book,
            [&](const PlayerRecord& player) { return loopsOf(player, book); }),
        fetchedAgain(book),
        broken(book),
        byPlayer(
            TroubleId::ClockAhead, book, [](const PlayerRecord& player) { return player.ahead; }),
        byPath(TroubleId::DatedAhead, totals.datedAhead),
        errors(TroubleId::ServerError, book, totals.serverErrors, &PlayerRecord::serverErrors),
        errors(TroubleId::ClientError, book, totals.clientErrors, &PlayerRecord::clientErrors),
        byPath(TroubleId::FileUnnamed, totals.unnamed),
        byPath(TroubleId::NoLauncher, totals.foreign),
    };
    found.removeIf([](const Trouble& trouble) { return trouble.count == 0; });
    return found;
}

} // namespace Troubles

} // namespace Publisher
