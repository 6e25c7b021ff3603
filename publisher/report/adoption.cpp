#include "publisher/report/adoption.h"

#include "publisher/report/logbook.h"
#include "publisher/report/shown.h"

#include <algorithm>
#include <limits>
#include <vector>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

constexpr std::int64_t secondsOfAnHour = 3600;
constexpr std::size_t pointsOfACurve = 60;
constexpr std::uint32_t none = std::numeric_limits<std::uint32_t>::max();

QString wordOf(Track track)
{
    switch (track) {
    case Track::Live:
        return u"live"_s;
    case Track::Test:
        return u"test"_s;
    default:
        return u"launcher"_s;
    }
}

/// A publication, in the order of their times.
struct Step {
    const Version* version = nullptr;
    std::int64_t time = 0;
};

/// Whether both were fetched at one time, as far as servers and players know the time.
bool atOneTime(const TimeSpan& one, const TimeSpan& other)
{
    return one.first <= other.last + LogBook::tolerance
        && other.first <= one.last + LogBook::tolerance;
}

/// Of each version how many answers may have been whole. Of a start's two runs the one that
/// has the launcher breaks the other's off, many of them at the same byte, and what then
/// has no date would pass for a version of its own.
std::vector<std::int64_t> answersNotCutShort(const LogBook& book)
{
    const auto& versions = book.versions();
    std::vector<std::int64_t> answers(versions.size(), 0);
    for (const PlayerRecord& player : book.players()) {
        for (const Had& had : player.had) {
            const Version& version = versions[had.version];
            const auto isCutShort = [&](const Had& other) {
                return versions[other.version].track == version.track
                    && other.bytes >= had.bytes + Versions::leastDifference
                    && atOneTime(other.times, had.times);
            };
            if (std::none_of(player.had.begin(), player.had.end(), isCutShort))
                answers[had.version] += had.answers;
        }
    }
    return answers;
}

/// One track's publications, and the place of each version among them.
class Timeline {
public:
    Timeline(const LogBook& logBook, Track itsTrack)
        : book(logBook)
        , track(itsTrack)
        , places(logBook.versions().size(), none)
    {
        const auto& versions = book.versions();
        const std::vector<std::int64_t> answers = answersNotCutShort(book);
        std::vector<std::uint32_t> own;
        for (std::uint32_t i = 0; i < versions.size(); ++i) {
            // Chance does not break answers off at the same place twice.
            const bool isTold = versions[i].date || answers[i] > 1;
            if (versions[i].track == track && !versions[i].seen.isEmpty() && isTold)
                own.push_back(i);
        }
        std::sort(own.begin(), own.end(), [&](std::uint32_t one, std::uint32_t other) {
            return timeOf(versions[one]) < timeOf(versions[other]);
        });
        for (const std::uint32_t version : own)
            add(version);
    }

    const std::vector<Step>& steps() const
    {
        return all;
    }

    /// None where it is a broken answer.
    std::uint32_t placeOf(const Had& had) const
    {
        const bool isWhole = had.answers > 0 && book.tallyOf(had.version).isWhole(had.bytes);
        return isWhole || !had.confirmed.isEmpty() ? places[had.version] : none;
    }

    /// What was the latest then.
    std::uint32_t placeAt(std::int64_t time) const
    {
        std::uint32_t place = none;
        for (std::uint32_t i = 0; i < all.size(); ++i) {
            if (all[i].time <= time && !all[i].version->isNext)
                place = i;
        }
        return place;
    }

    /// The last that everybody is to have.
    std::uint32_t latest() const
    {
        return placeAt(std::numeric_limits<std::int64_t>::max());
    }

    Track kind() const
    {
        return track;
    }

private:
    static std::int64_t timeOf(const Version& version)
    {
        return version.date.value_or(version.seen.first);
    }

    void add(std::uint32_t number)
    {
        const Version& version = book.versions()[number];
        places[number] = static_cast<std::uint32_t>(all.size());
        all.push_back({ &version, timeOf(version) });
    }

    const LogBook& book;
    Track track;
    std::vector<std::uint32_t> places;
    std::vector<Step> all;
};

/// What one player has of one track.
class Holding {
public:
    Holding(const PlayerRecord& player, const Timeline& timeline)
    {
        for (const Had& had : player.had) {
            const std::uint32_t place = timeline.placeOf(had);
            if (place == none)
                continue;
            TimeSpan times = had.times;
            if (!had.confirmed.isEmpty()) {
                times.add(had.confirmed.first);
                times.add(had.confirmed.last);
            }
            take(place, times);
        }
        takeNotModified(player.notModified[static_cast<std::size_t>(timeline.kind())], timeline);
    }

    /// None where he has asked and the logs do not tell what he has.
    std::uint32_t place() const
    {
        return current;
    }

    bool hasAsked() const
    {
        return !online.isEmpty();
    }

    std::int64_t lastOnline() const
    {
        return online.last;
    }

    /// When he had this publication or a later one for the first time.
    std::int64_t firstAt(std::uint32_t place) const
    {
        std::int64_t first = TimeSpan::never;
        for (const auto& [had, time] : firsts) {
            if (had >= place)
                first = std::min(first, time);
        }
        return first;
    }

private:
    void take(std::uint32_t place, const TimeSpan& times)
    {
        firsts.emplace_back(place, times.first);
        online.add(times.first);
        online.add(times.last);
        // Publications of one moment come in their order.
        if (current == none || times.last > currentTime
            || (times.last == currentTime && place > current)) {
            current = place;
            currentTime = times.last;
        }
    }

    void takeNotModified(const TimeSpan& times, const Timeline& timeline)
    {
        if (times.isEmpty())
            return;
        online.add(times.first);
        online.add(times.last);
        for (const std::int64_t time : { times.first, times.last }) {
            TimeSpan moment;
            moment.add(time);
            if (const std::uint32_t place = timeline.placeAt(time); place != none)
                take(place, moment);
        }
    }

    std::uint32_t current = none;
    std::int64_t currentTime = 0;
    TimeSpan online;
    std::vector<std::pair<std::uint32_t, std::int64_t>> firsts;
};

std::vector<Holding> holdingsOf(const LogBook& book, const Timeline& timeline)
{
    std::vector<Holding> holdings;
    for (const PlayerRecord& player : book.players()) {
        Holding holding(player, timeline);
        if (holding.hasAsked())
            holdings.push_back(std::move(holding));
    }
    return holdings;
}

PublicationAdoption described(const Step& step, const LogBook& book, std::uint32_t number)
{
    const Version& version = *step.version;
    return { .number = version.number,
             .isNext = version.isNext,
             .message = version.message,
             .time = step.time,
             .isDated = version.date.has_value(),
             .size = std::max(version.size, book.tallyOf(number).size()) };
}

/// The moments at which one player after the other had it.
std::vector<std::int64_t> momentsOf(const std::vector<Holding>& holdings, std::uint32_t place)
{
    std::vector<std::int64_t> moments;
    for (const Holding& holding : holdings) {
        if (const std::int64_t first = holding.firstAt(place); first != TimeSpan::never)
            moments.push_back(first);
    }
    std::sort(moments.begin(), moments.end());
    return moments;
}

void addCurve(
    PublicationAdoption& adoption, const std::vector<std::int64_t>& moments, std::size_t players)
{
    constexpr std::size_t hundred = 100;
    const auto secondsAt = [&](std::size_t place) {
        return std::max<qint64>(0, moments[place] - adoption.time);
    };
    for (std::size_t i = 0; i < Adoption::shares.size(); ++i) {
        const auto share = static_cast<std::size_t>(Adoption::shares[i]);
        const std::size_t needed = (players * share + hundred - 1) / hundred;
        if (needed > 0 && needed <= moments.size())
            adoption.seconds[i] = secondsAt(needed - 1);
    }
    const std::size_t stride = std::max<std::size_t>(1, moments.size() / pointsOfACurve);
    for (std::size_t i = stride - 1; i < moments.size(); i += stride)
        adoption.curve.append({ secondsAt(i), static_cast<qint64>(i + 1) });
    if (!moments.empty() && moments.size() % stride != 0)
        adoption.curve.append(
            { secondsAt(moments.size() - 1), static_cast<qint64>(moments.size()) });
}

void addPlayers(Adoption& adoption, const std::vector<Holding>& holdings, std::uint32_t latest)
{
    for (const Holding& holding : holdings) {
        const std::uint32_t place = holding.place();
        if (place == none) {
            ++adoption.unknown;
            continue;
        }
        PublicationAdoption& publication = adoption.publications[place];
        ++publication.players;
        publication.lastOnline = std::max<qint64>(publication.lastOnline, holding.lastOnline());
        adoption.behind += place < latest && !publication.isNext ? 1 : 0;
    }
}

Adoption adoptionOf(const LogBook& book, Track track)
{
    const Timeline timeline(book, track);
    const std::vector<Holding> holdings = holdingsOf(book, timeline);
    Adoption adoption{ .track = wordOf(track), .players = static_cast<qint64>(holdings.size()) };
    const auto& steps = timeline.steps();
    for (std::uint32_t place = 0; place < steps.size(); ++place) {
        const auto number
            = static_cast<std::uint32_t>(steps[place].version - book.versions().data());
        adoption.publications.append(described(steps[place], book, number));
        // Who had one from before the logs begin does not show in them.
        if (steps[place].time >= book.totals().times.first && !steps[place].version->isNext)
            addCurve(adoption.publications.last(), momentsOf(holdings, place), holdings.size());
    }
    addPlayers(adoption, holdings, timeline.latest());
    return adoption;
}

} // namespace

namespace Adoptions {

QList<Adoption> in(const LogBook& book)
{
    QList<Adoption> all;
    for (const Track track : { Track::Live, Track::Test, Track::Launcher }) {
        const Adoption adoption = adoptionOf(book, track);
        if (adoption.players > 0)
            all.append(adoption);
    }
    return all;
}

Trouble onlineAndBehind(const LogBook& book)
{
    const Timeline timeline(book, Track::Live);
    Trouble trouble{ .id = TroubleId::OnlineAndBehind };
    const std::uint32_t latest = timeline.latest();
    if (latest == none)
        return trouble;
    for (const PlayerRecord& player : book.players()) {
        const Holding holding(player, timeline);
        const bool isBehind = holding.hasAsked() && holding.place() < latest
            && !timeline.steps()[holding.place()].version->isNext;
        if (isBehind && player.times.last > timeline.steps()[latest].time + secondsOfAnHour)
            ++trouble.count;
    }
    trouble.players = trouble.count;
    return trouble;
}

} // namespace Adoptions

} // namespace Publisher
