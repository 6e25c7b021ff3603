#include "publisher/report/reporttext.h"

#include "publisher/common/progress.h"
#include "publisher/report/report.h"

#include <QDateTime>
#include <QLocale>

using namespace Qt::StringLiterals;

namespace Publisher::ReportText {

namespace {

constexpr double hundred = 100;

QString percent(double share)
{
    return u"%1 %"_s.arg(share * hundred, 0, 'f', 0);
}

QString peak(const QString& what, const QString& value, const LoadPeak& peak)
{
    return u"    most %1 in a minute: %2, %3"_s.arg(what, value, time(peak.time));
}

QStringList ofAdoption(const Adoption& adoption)
{
    QStringList lines{ u"%1: %2 players, %3 of them without the latest"_s.arg(
        nameOf(adoption), number(adoption.players), number(adoption.behind)) };
    for (const PublicationAdoption& publication : adoption.publications) {
        lines += u"    %1: %2 players"_s.arg(nameOf(publication), number(publication.players));
        const QString when = pace(publication);
        if (!when.isEmpty())
            lines += u"        it or a later one: "_s + when;
    }
    if (adoption.unknown > 0)
        lines += u"    unknown: %1 players"_s.arg(number(adoption.unknown));
    return lines;
}

QStringList ofTrouble(const Trouble& trouble)
{
    QString head = u"%1: %2"_s.arg(number(trouble.count), trouble.meaning());
    if (trouble.players > 0)
        head += u" (addresses: %1)"_s.arg(number(trouble.players));
    QStringList lines{ u"%1 [%2]"_s.arg(head, trouble.identifier()) };
    for (const Trouble::Case& one : trouble.cases)
        lines
            += u"        %1  %2"_s.arg(number(one.count), (one.player + u' ' + one.path).trimmed());
    lines += u"    "_s + trouble.remedy();
    return lines;
}

QStringList ofLoad(const Load& load)
{
    QStringList lines{
        u"Load: %1 requests, %2, %3 connections"_s.arg(
            number(load.requests), humanSize(load.bytes), number(load.connections)),
        peak(u"requests"_s, number(load.mostRequests.value), load.mostRequests),
        peak(u"bytes"_s, humanSize(load.mostBytes.value), load.mostBytes),
        peak(u"connections"_s, number(load.mostConnections.value), load.mostConnections),
    };
    if (load.timedDownloads > 0)
        lines += u"    of %1 downloads the slowest tenth had %2 at most, the slower half %3"_s.arg(
            number(load.timedDownloads), rate(load.slowestTenth), rate(load.slowerHalf));
    return lines;
}

} // namespace

QString time(qint64 seconds)
{
    return QDateTime::fromSecsSinceEpoch(seconds).toUTC().toString(u"yyyy-MM-dd HH:mm"_s)
        + u" UTC"_s;
}

QString duration(qint64 seconds)
{
    constexpr qint64 minute = 60;
    constexpr qint64 hour = 60 * minute;
    constexpr qint64 day = 24 * hour;
    if (seconds < 2 * minute)
        return u"%1 seconds"_s.arg(seconds);
    if (seconds < 2 * hour)
        return u"%1 minutes"_s.arg(seconds / minute);
    const qint64 unit = seconds < 2 * day ? hour : day;
    return u"%1 %2"_s.arg(static_cast<double>(seconds) / static_cast<double>(unit), 0, 'f', 1)
        .arg(unit == day ? u"days"_s : u"hours"_s);
}

QString number(qint64 value)
{
    return QLocale(QLocale::English).toString(value);
}

QString rate(double bytesPerSecond)
{
    constexpr double bitsOfAByte = 8;
    constexpr double bitsOfAMegabit = 1e6;
    return u"%1 Mbit/s"_s.arg(bytesPerSecond * bitsOfAByte / bitsOfAMegabit, 0, 'f', 1);
}

QString nameOf(const Adoption& adoption)
{
    return adoption.track == "launcher"_L1 ? u"Launcher"_s
        : adoption.track == "test"_L1      ? u"Test manifest"_s
                                           : u"Live manifest"_s;
}

QString nameOf(const PublicationAdoption& publication)
{
    QString name = publication.isNext ? u"the next one"_s
        : publication.number > 0      ? u"number %1"_s.arg(publication.number)
        : publication.isDated         ? u"dated"_s
                                      : u"of %1, first seen"_s.arg(humanSize(publication.size));
    name += publication.number > 0 || publication.isNext ? u" (%1)"_s.arg(time(publication.time))
                                                         : u' ' + time(publication.time);
    return publication.message.isEmpty() ? name : name + u", "_s + publication.message;
}

QString pace(const PublicationAdoption& publication)
{
    QStringList parts;
    if (publication.curve.isEmpty())
        return {};
    for (std::size_t i = 0; i < Adoption::shares.size(); ++i) {
        const auto& seconds = publication.seconds[i];
        parts += u"%1 % %2"_s.arg(Adoption::shares[i])
                     .arg(seconds ? u"after "_s + duration(*seconds) : u"not yet"_s);
    }
    return parts.join(", "_L1);
}

QStringList quality(const Report& report)
{
    const LogQuality& quality = report.quality;
    QStringList lines{ u"Of the requests %1 tell the date of the player's copy, %2 how long they "
                       "took, %3 whether they opened a connection."_s.arg(
                           percent(quality.withDates), percent(quality.withDuration),
                           percent(quality.withConnection)),
                       u"Players are addresses here: several behind one count once, and one who "
                       "changes his address counts again."_s };
    if (quality.wrong > 0)
        lines += u"Wrong lines: %1 of %2; the first ones:"_s.arg(
            number(quality.wrong), number(quality.lines));
    for (const LogQuality::WrongLine& line : quality.wrongLines)
        lines += u"    %1, line %2: %3"_s.arg(line.log).arg(line.number).arg(wordsOf(line.fault));
    if (quality.unfinished > 0)
        lines
            += u"Logs whose last line has no end, which is left out: %1."_s.arg(quality.unfinished);
    if (quality.otherLines > 0)
        lines += u"Lines that tell of no request: %1."_s.arg(number(quality.otherLines));
    if (quality.leftOut > 0)
        lines += u"Requests of your own, left out: %1."_s.arg(number(quality.leftOut));
    if (!quality.isExact)
        lines += u"There were too many paths, files or minutes to count all: what came seldom may "
                 "be missing."_s;
    return lines;
}

QString patchDay(const Report& report)
{
    if (!report.load.patchDay)
        return {};
    const Load::Step& day = *report.load.patchDay;
    QString text
        = u"In the 24 hours after the latest publication %1 players got it: %2 "
          "connections, %3."_s.arg(
              number(report.load.playersOfPatchDay), number(day.connections), humanSize(day.bytes));
    if (report.load.estimated)
        text += u" The estimate for as many: %1 connections, %2 with all that goes over the "
                "line."_s.arg(
                    number(report.load.estimated->connections),
                    humanSize(report.load.estimated->bytes));
    return text;
}

QStringList lines(const Report& report)
{
    if (report.load.requests == 0)
        return QStringList{ u"The logs tell of no request."_s } + quality(report);
    QStringList text{ u"From %1 to %2: %3 players, %4 other addresses"_s.arg(
        time(report.from), time(report.to), number(report.players), number(report.strangers)) };
    for (const Adoption& adoption : report.adoption)
        text += QStringList{ {} } + ofAdoption(adoption);
    text += QStringList{ {} } + ofLoad(report.load);
    if (const QString day = patchDay(report); !day.isEmpty())
        text += u"    "_s + day;
    for (const Trouble& trouble : report.troubles)
        text += QStringList{ {} } + ofTrouble(trouble);
    return text + QStringList{ {} } + quality(report);
}

} // namespace Publisher::ReportText
