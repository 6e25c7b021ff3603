#include "publisher/report/reportjson.h"

#include "publisher/report/report.h"

#include <QDateTime>
#include <QJsonArray>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

QJsonValue timeOf(qint64 seconds)
{
    return QDateTime::fromSecsSinceEpoch(seconds).toUTC().toString(Qt::ISODate);
}

template <typename List, typename Convert>
QJsonArray arrayOf(const List& list, const Convert& convert)
{
    QJsonArray array;
    for (const auto& element : list)
        array.append(convert(element));
    return array;
}

QJsonObject ofPublication(const PublicationAdoption& publication)
{
    QJsonObject object{
        { u"number"_s, publication.number },   { u"isNext"_s, publication.isNext },
        { u"message"_s, publication.message }, { u"time"_s, timeOf(publication.time) },
        { u"isDated"_s, publication.isDated }, { u"size"_s, publication.size },
        { u"players"_s, publication.players }
    };
    if (publication.players > 0)
        object.insert(u"lastOnline"_s, timeOf(publication.lastOnline));
    for (std::size_t i = 0; i < Adoption::shares.size(); ++i) {
        const auto& seconds = publication.seconds[i];
        object.insert(
            u"seconds%1"_s.arg(Adoption::shares[i]), seconds ? QJsonValue(*seconds) : QJsonValue());
    }
    object.insert(
        u"curve"_s, arrayOf(publication.curve, [](const auto& point) {
            return QJsonObject{ { u"seconds"_s, point.first }, { u"players"_s, point.second } };
        }));
    return object;
}

QJsonObject ofAdoption(const Adoption& adoption)
{
    return { { u"track"_s, adoption.track },
             { u"players"_s, adoption.players },
             { u"unknown"_s, adoption.unknown },
             { u"behind"_s, adoption.behind },
             { u"publications"_s, arrayOf(adoption.publications, ofPublication) } };
}

QJsonObject ofCase(const Trouble::Case& one)
{
    QJsonObject object{ { u"count"_s, one.count } };
    if (!one.player.isEmpty())
        object.insert(u"player"_s, one.player);
    if (!one.path.isEmpty())
        object.insert(u"path"_s, one.path);
    return object;
}

QJsonObject ofTrouble(const Trouble& trouble)
{
    return { { u"id"_s, trouble.identifier() }, { u"text"_s, trouble.meaning() },
             { u"wayOut"_s, trouble.remedy() }, { u"count"_s, trouble.count },
             { u"players"_s, trouble.players }, { u"cases"_s, arrayOf(trouble.cases, ofCase) } };
}

QJsonObject ofStep(const Load::Step& step)
{
    return { { u"time"_s, timeOf(step.time) },
             { u"requests"_s, step.requests },
             { u"bytes"_s, step.bytes },
             { u"connections"_s, step.connections } };
}

QJsonObject ofPeak(const LoadPeak& peak)
{
    return { { u"time"_s, timeOf(peak.time) }, { u"count"_s, peak.value } };
}

QJsonObject ofLoad(const Load& load)
{
    QJsonObject object{
        { u"requests"_s, load.requests },
        { u"bytes"_s, load.bytes },
        { u"connections"_s, load.connections },
        { u"mostRequests"_s, ofPeak(load.mostRequests) },
        { u"mostBytes"_s, ofPeak(load.mostBytes) },
        { u"mostConnections"_s, ofPeak(load.mostConnections) },
        { u"timedDownloads"_s, load.timedDownloads },
        { u"slowestTenth"_s, load.slowestTenth },
        { u"slowerHalf"_s, load.slowerHalf },
        { u"secondsOfAStep"_s, load.secondsOfAStep },
        { u"steps"_s, arrayOf(load.steps, ofStep) },
        { u"statuses"_s,
          arrayOf(
              load.statuses,
              [](const auto& status) {
                  return QJsonObject{ { u"status"_s, status.first },
                                      { u"count"_s, status.second } };
              }) },
    };
    if (load.patchDay) {
        QJsonObject day = ofStep(*load.patchDay);
        day.insert(u"players"_s, load.playersOfPatchDay);
        if (load.estimated)
            day.insert(u"estimate"_s, ofStep(*load.estimated));
        object.insert(u"patchDay"_s, day);
    }
    return object;
}

QJsonObject ofWrongLine(const LogQuality::WrongLine& line)
{
    return { { u"log"_s, line.log },
             { u"line"_s, line.number },
             { u"fault"_s, wordsOf(line.fault) } };
}

QJsonObject ofQuality(const LogQuality& quality)
{
    return { { u"lines"_s, quality.lines },
             { u"wrong"_s, quality.wrong },
             { u"wrongLines"_s, arrayOf(quality.wrongLines, ofWrongLine) },
             { u"otherLines"_s, quality.otherLines },
             { u"unfinished"_s, quality.unfinished },
             { u"leftOut"_s, quality.leftOut },
             { u"withDates"_s, quality.withDates },
             { u"withDuration"_s, quality.withDuration },
             { u"withConnection"_s, quality.withConnection },
             { u"isExact"_s, quality.isExact } };
}

} // namespace

QJsonObject toJson(const Report& report)
{
    QJsonObject object{
        { u"players"_s, report.players },
        { u"strangers"_s, report.strangers },
        { u"playersByDay"_s,
          arrayOf(
              report.playersByDay,
              [](const auto& day) {
                  return QJsonObject{ { u"time"_s, timeOf(day.first) },
                                      { u"players"_s, day.second } };
              }) },
        { u"adoption"_s, arrayOf(report.adoption, ofAdoption) },
        { u"troubles"_s, arrayOf(report.troubles, ofTrouble) },
        { u"load"_s, ofLoad(report.load) },
        { u"logs"_s, ofQuality(report.quality) },
    };
    if (report.load.requests > 0) {
        object.insert(u"from"_s, timeOf(report.from));
        object.insert(u"to"_s, timeOf(report.to));
    }
    return object;
}

} // namespace Publisher
