#include "publisher/cli/fleetoptions.h"

#include "publisher/cli/output.h"

#include <QCommandLineParser>

using namespace Qt::StringLiterals;

namespace Publisher::FleetOptions {

void addFleet(QCommandLineParser& parser)
{
    parser.addOption({ u"fleet"_s,
                       u"The list of your servers; packaging/fleet.example.ini explains it."_s,
                       u"FILE"_s });
}

void addQuestions(QCommandLineParser& parser)
{
    parser.addOptions({
        { u"alert"_s,
          u"Where launchers fetch the text in their window; for the server of this configuration "
          "it is known."_s,
          u"URL"_s },
        { u"timeout"_s, u"Gives up on a server that says nothing for so long (default 60)."_s,
          u"SECONDS"_s, u"60"_s },
        { u"days"_s, u"The certificate must be valid for this many days (default 14)."_s, u"N"_s,
          u"14"_s },
    });
}

std::optional<FleetFile> readFleet(const QCommandLineParser& parser, Output& output)
{
    const FleetFile fleet = FleetFile::read(parser.value(u"fleet"_s));
    if (fleet.faults.isEmpty())
        return fleet;
    for (const QString& fault : fleet.faults)
        output.error(fault);
    return std::nullopt;
}

} // namespace Publisher::FleetOptions
