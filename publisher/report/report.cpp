#include "publisher/report/report.h"

#include "publisher/build/estimate.h"
#include "publisher/report/adoption.h"
#include "publisher/report/logbook.h"
#include "publisher/report/loglines.h"
#include "publisher/report/logsource.h"
#include "publisher/report/logtime.h"
#include "publisher/report/publishedtree.h"

#include <algorithm>
#include <memory>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

constexpr qsizetype wrongLinesShown = 10;
constexpr qint64 mostSteps = 240;
constexpr double slowShare = 0.1;
constexpr double half = 0.5;

/// Takes the lines of one log after the other.
class Reading {
public:
    Reading(LogBook& logBook, LogQuality& logQuality)
        : book(logBook)
        , quality(logQuality)
    {
    }

    Problem read(const QString& log)
    {
        Problem problem;
        const std::unique_ptr<LogSource> source = LogSource::open(log, problem);
        if (problem)
            return problem;
        problem = LogLines::read(*source, [&](const LogLines::Line& line) { take(log, line); });
        if (problem)
            return u"%1: %2"_s.arg(log, *problem);
        return std::nullopt;
    }

private:
    void take(const QString& log, const LogLines::Line& line)
    {
        if (line.isUnfinished) {
            ++quality.unfinished;
            return;
        }
        ++quality.lines;
        const LineFault fault
            = line.isTooLong ? LineFault::TooLong : parser.parse(line.text, request);
        if (fault == LineFault::None)
            book.add(request);
        else if (fault == LineFault::OtherMessage)
            ++quality.otherLines;
        else
            note({ log, line.number, fault });
    }

    void note(const LogQuality::WrongLine& line)
    {
        ++quality.wrong;
        if (quality.wrongLines.size() < wrongLinesShown)
            quality.wrongLines.append(line);
    }

    LogBook& book;
    LogQuality& quality;
    LineParser parser;
    LogLine request;
};

void add(Load::Step& step, const MinuteLoad& minute)
{
    step.requests += minute.requests;
    step.bytes += minute.bytes;
    step.connections += minute.connections;
}

void raise(LoadPeak& peak, qint64 value, qint64 time)
{
    if (value > peak.value || (value == peak.value && time < peak.time))
        peak = { value, time };
}

/// Steps of whole minutes from the first request to the last.
void layOutSteps(const LogBook::Totals& totals, Load& load)
{
    const qint64 from = totals.times.first / LogTime::secondsOfAMinute * LogTime::secondsOfAMinute;
    const qint64 minutes = (totals.times.last - from) / LogTime::secondsOfAMinute + 1;
    load.secondsOfAStep = (minutes + mostSteps - 1) / mostSteps * LogTime::secondsOfAMinute;
    const qint64 steps = (totals.times.last - from) / load.secondsOfAStep + 1;
    for (qint64 i = 0; i < steps; ++i)
        load.steps.append(Load::Step{ .time = from + i * load.secondsOfAStep });
}

Load loadOf(const LogBook& book)
{
    const LogBook::Totals& totals = book.totals();
    Load load{ .requests = totals.requests,
               .bytes = totals.bytes,
               .connections = totals.connections,
               .timedDownloads = book.rates().total(),
               .slowestTenth = book.rates().slowest(slowShare),
               .slowerHalf = book.rates().slowest(half) };
    load.statuses = { totals.statuses.cbegin(), totals.statuses.cend() };
    if (totals.requests == 0)
        return load;
    layOutSteps(totals, load);
    for (const auto& [minute, sums] : book.minutes()) {
        const qint64 time = minute * LogTime::secondsOfAMinute;
        add(load.steps[(time - load.steps.first().time) / load.secondsOfAStep], sums);
        raise(load.mostRequests, sums.requests, time);
        raise(load.mostBytes, sums.bytes, time);
        raise(load.mostConnections, sums.connections, time);
    }
    return load;
}

/// The first day of the latest publication, as far as the logs have it.
void addPatchDay(const LogBook& book, const QList<Adoption>& all, Load& load)
{
    const auto live = std::find_if(
        all.cbegin(), all.cend(), [](const Adoption& one) { return one.track == "live"_L1; });
    if (live == all.cend())
        return;
    const auto latest = std::find_if(
        live->publications.crbegin(), live->publications.crend(),
        [](const PublicationAdoption& one) { return !one.isNext; });
    if (latest == live->publications.crend() || latest->time < book.totals().times.first)
        return;
    Load::Step day{ .time = latest->time };
    for (const auto& [minute, sums] : book.minutes()) {
        const qint64 since = minute * LogTime::secondsOfAMinute - latest->time;
        if (since > -LogTime::secondsOfAMinute && since < LogTime::secondsOfADay)
            add(day, sums);
    }
    load.patchDay = day;
    for (const auto& [seconds, players] : latest->curve) {
        if (seconds < LogTime::secondsOfADay)
            load.playersOfPatchDay = players;
    }
}

/// What as many players were estimated to cost.
void addEstimate(const QString& tree, Load& load)
{
    Estimate estimated;
    if (tree.isEmpty() || !load.patchDay || estimate({ .server = tree }, estimated))
        return;
    const qint64 players = load.playersOfPatchDay;
    load.estimated = { .time = load.patchDay->time,
                       .requests = players * estimated.updating.requests,
                       .bytes = players * estimated.updating.bytes,
                       .connections = players * estimated.updating.requests };
}

void addPlayers(const LogBook& book, Report& report)
{
    std::map<qint64, qint64> days;
    for (const PlayerRecord& player : book.players()) {
        ++(player.launcherRequests > 0 ? report.players : report.strangers);
        for (const std::uint32_t day : player.days)
            ++days[day];
    }
    for (const auto& [day, players] : days)
        report.playersByDay.append({ day * LogTime::secondsOfADay, players });
}

void addQuality(const LogBook& book, LogQuality& quality)
{
    const LogBook::Totals& totals = book.totals();
    const double all = std::max<double>(1, static_cast<double>(totals.requests));
    quality.leftOut = totals.leftOut;
    quality.withDates = static_cast<double>(totals.withDates) / all;
    quality.withDuration = static_cast<double>(totals.withDuration) / all;
    quality.withConnection = static_cast<double>(totals.withConnection) / all;
    quality.isExact = book.fetches().isExact() && totals.clientErrors.isExact()
        && totals.serverErrors.isExact() && totals.foreign.isExact() && totals.unnamed.isExact()
        && totals.beyondMinutes == 0;
}

} // namespace

Problem makeReport(const ReportRequest& request, Report& report)
{
    PublishedTree tree;
    if (!request.tree.isEmpty()) {
        if (Problem problem = tree.read(request.tree))
            return problem;
    }
    LogBook book(KeyedHash::ofOneRun(), request.tree.isEmpty() ? nullptr : &tree);
    for (const QString& address : request.own)
        book.leaveOut(address.toStdString());
    Reading reading(book, report.quality);
    for (const QString& log : request.logs) {
        if (Problem problem = reading.read(log))
            return problem;
    }
    const TimeSpan& times = book.totals().times;
    if (!times.isEmpty()) {
        report.from = times.first;
        report.to = times.last;
    }
    addPlayers(book, report);
    report.adoption = Adoptions::in(book);
    report.troubles = Troubles::in(book);
    if (const Trouble behind = Adoptions::onlineAndBehind(book); behind.count > 0)
        report.troubles.append(behind);
    report.load = loadOf(book);
    addPatchDay(book, report.adoption, report.load);
    addEstimate(request.tree, report.load);
    addQuality(book, report.quality);
    return std::nullopt;
}

} // namespace Publisher
