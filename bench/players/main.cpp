// Any number of players in one process, who hold the launcher's conversation with one
// server or several; see Player. What they have met is told as one JSON object.

#include "bench/players/evening.h"
#include "bench/support/usage.h"
#include "update/launcherfiles.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <array>
#include <cstdio>
#include <optional>

using namespace Players;
using namespace Qt::StringLiterals;

namespace {

void addOptions(QCommandLineParser& parser)
{
    parser.addHelpOption();
    parser.addOptions({
        { u"players"_s, u"How many."_s, u"number"_s, u"1"_s },
        { u"starts"_s, u"Each starts the launcher so many times."_s, u"number"_s, u"1"_s },
        { u"until-told"_s,
          u"Before that they start again and again until standard input closes."_s },
        { u"by-line"_s,
          u"And once more for every line of standard input, with clocks moved by as many seconds "
          "as stand there."_s },
        { u"settled"_s, u"They have a launcher of today."_s },
        { u"spread"_s, u"Over which the first starts are spread."_s, u"seconds"_s, u"0"_s },
        { u"pause"_s, u"Between two starts, at most."_s, u"seconds"_s, u"0"_s },
        { u"at-once"_s, u"How many play at a time at most; who is due waits."_s, u"number"_s,
          u"0"_s },
        { u"testers"_s, u"Share with the developer switch."_s, u"percent"_s, u"0"_s },
        { u"clocks-ahead"_s, u"Share whose clocks are an hour ahead."_s, u"percent"_s, u"0"_s },
        { u"stuck"_s, u"Share whose updaters do nothing."_s, u"percent"_s, u"0"_s },
        { u"breaking-off"_s, u"Share who hang up in the middle of large files."_s, u"percent"_s,
          u"0"_s },
        { u"online"_s, u"Share who take part in a start."_s, u"percent"_s, u"100"_s },
        { u"clock-shift"_s, u"Moves all clocks, from the beginning on."_s, u"seconds"_s, u"0"_s },
        { u"apart"_s, u"Each lives so much later than the one before."_s, u"seconds"_s, u"0"_s },
        { u"own-addresses"_s, u"Each asks from a loopback address of his own."_s },
        { u"servers"_s, u"Asked by chance in place of that of the address."_s, u"HOST:PORT,..."_s },
        { u"authority"_s, u"Certificates to trust."_s, u"file"_s },
        { u"seed"_s, u"Of all chance."_s, u"number"_s, u"1"_s },
        { u"log"_s, u"Gets every request."_s, u"file"_s },
        { u"truth"_s, u"Folder of what is published; everybody is held against it in the end."_s,
          u"folder"_s },
    });
}

QList<QByteArray> listOf(const QString& text)
{
    QList<QByteArray> list;
    const QStringList parts = text.split(u',', Qt::SkipEmptyParts);
    for (const QString& part : parts)
        list.append(part.toLatin1());
    return list;
}

/// Empty where there is no such file.
QByteArray hashOf(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QCryptographicHash::hash(file.readAll(), QCryptographicHash::Md5).toHex();
}

QJsonArray stranded(const Evening& evening, const QString& truth)
{
    QMap<QString, QByteArray> manifests;
    for (const QString name : { liveManifestFileName, testManifestFileName })
        manifests[name] = hashOf(truth + u'/' + name);
    const QByteArray launcher = hashOf(truth + u'/' + launcherFileName);
    QJsonArray found;
    int number = 0;
    for (const auto& player : evening.everybody()) {
        const QStringList differences = player->differences(manifests, launcher);
        if (!differences.isEmpty())
            found.append(QJsonObject{ { u"player"_s, number },
                                      { u"has"_s, QJsonArray::fromStringList(differences) } });
        ++number;
    }
    return found;
}

QJsonObject told(const Tally& tally)
{
    QJsonObject statuses;
    for (auto it = tally.statuses.cbegin(); it != tally.statuses.cend(); ++it)
        statuses[QString::number(it.key())] = it.value();
    QJsonObject failures;
    for (auto it = tally.failures.cbegin(); it != tally.failures.cend(); ++it)
        failures[QString::fromUtf8(it.key())] = it.value();
    return { { u"starts"_s, tally.starts }, { u"requests"_s, tally.requests },
             { u"bytes"_s, tally.bytes },   { u"statuses"_s, statuses },
             { u"failures"_s, failures },   { u"missing"_s, tally.missing },
             { u"wrong"_s, tally.wrong },   { u"launchersTwice"_s, tally.launchersTwice } };
}

/// Waits for a line with a number, 0 where there is none; nothing at the end of standard
/// input.
std::optional<qint64> numberToldByLine()
{
    std::array<char, 80> line{};
    if (std::fgets(line.data(), line.size(), stdin) == nullptr)
        return std::nullopt;
    return QByteArray(line.data()).trimmed().toLongLong();
}

Evening::Habits habitsOf(const QCommandLineParser& parser)
{
    return { .players = parser.value(u"players"_s).toInt(),
             .spread = parser.value(u"spread"_s).toDouble(),
             .pause = parser.value(u"pause"_s).toDouble(),
             .atOnce = parser.value(u"at-once"_s).toUInt(),
             .testers = parser.value(u"testers"_s).toInt(),
             .clocksAhead = parser.value(u"clocks-ahead"_s).toInt(),
             .stuck = parser.value(u"stuck"_s).toInt(),
             .breakingOff = parser.value(u"breaking-off"_s).toInt(),
             .online = parser.value(u"online"_s).toInt(),
             .settled = parser.isSet(u"settled"_s) };
}

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    QCommandLineParser parser;
    addOptions(parser);
    parser.process(application);

    World world(
        parser.value(u"authority"_s).toLocal8Bit(), listOf(parser.value(u"servers"_s)),
        parser.value(u"seed"_s).toUInt());
    if (parser.isSet(u"log"_s) && !world.keepLog(parser.value(u"log"_s))) {
        std::fputs("the log cannot be written\n", stderr);
        return 1;
    }
    world.hasOwnAddresses = parser.isSet(u"own-addresses"_s);
    world.clockShift = parser.value(u"clock-shift"_s).toLongLong();
    world.secondsApart = parser.value(u"apart"_s).toLongLong();
    Evening evening(world, habitsOf(parser));
    QElapsedTimer timer;
    timer.start();
    if (parser.isSet(u"until-told"_s))
        evening.playUntilToldToEnd();
    evening.play(parser.value(u"starts"_s).toInt());
    while (parser.isSet(u"by-line"_s)) {
        const std::optional<qint64> shift = numberToldByLine();
        if (!shift)
            break;
        world.clockShift = *shift;
        evening.play(1);
        std::puts("played");
        std::fflush(stdout);
    }

    QJsonObject report = told(world.tally);
    report[u"seconds"_s] = static_cast<double>(timer.elapsed()) / 1000;
    report[u"peakKiB"_s] = BenchSupport::Usage::now().peakKiB;
    if (parser.isSet(u"truth"_s))
        report[u"stranded"_s] = stranded(evening, parser.value(u"truth"_s));
    std::puts(QJsonDocument(report).toJson().constData());
    return 0;
}
