// A player's line in front of a server on the loopback: takes connections at one
// address, and gives them to another with the delays that they would have. Says "ready"
// when it accepts; at the end of standard input what went over it, as a JSON object.

#include "bench/line/relay.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

using namespace PlayersLine;
using namespace Qt::StringLiterals;

namespace {

LineSettings settingsOf(const QCommandLineParser& parser)
{
    constexpr double bytesOfAMegabit = 1e6 / 8;
    return { .roundTrip = std::chrono::milliseconds(parser.value(u"round-trip"_s).toInt()),
             .rate = parser.value(u"line"_s).toDouble() * bytesOfAMegabit,
             .lateShare = parser.value(u"late"_s).toDouble() / 100 };
}

void tell(const Tally& tally)
{
    const std::chrono::duration<double> seconds = tally.ended - tally.began;
    const QJsonObject told{ { u"connections"_s, tally.connections },
                            { u"bytes"_s, static_cast<qint64>(tally.bytes) },
                            { u"seconds"_s, seconds.count() } };
    std::puts(QJsonDocument(told).toJson(QJsonDocument::Compact).constData());
}

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    parser.addOptions({
        { u"port"_s, u"Where players connect to."_s, u"number"_s, u"443"_s },
        { u"server-port"_s, u"Where the server listens."_s, u"number"_s, u"8443"_s },
        { u"round-trip"_s, u"In milliseconds."_s, u"number"_s, u"30"_s },
        { u"line"_s, u"Towards the player, in Mbit/s."_s, u"number"_s, u"50"_s },
        { u"late"_s, u"Share that comes a round trip late."_s, u"percent"_s, u"0"_s },
    });
    parser.process(application);
    Relay relay(
        { parser.value(u"port"_s).toUShort(), parser.value(u"server-port"_s).toUShort() },
        settingsOf(parser));
    if (!relay.listen()) {
        std::perror("bench_line: the port cannot be had");
        return 1;
    }
    std::puts("ready");
    std::fflush(stdout);
    relay.runUntilInputEnds();
    tell(relay.tally());
    return 0;
}
