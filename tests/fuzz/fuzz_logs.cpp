// Access logs against the publisher's `report`: lines in all formats, and everything
// that is made of them.

#include "publisher/report/adoption.h"
#include "publisher/report/logbook.h"
#include "publisher/report/loglines.h"
#include "publisher/report/logsource.h"
#include "publisher/report/shown.h"
#include "publisher/report/trouble.h"
#include "tests/fuzz/target.h"

#include <cstring>

using namespace Publisher;

namespace {

/// Hands an input out in pieces, so that lines are cut between them.
class Pieces : public LogSource {
public:
    explicit Pieces(std::string_view text)
        : rest(text)
    {
    }

    std::size_t read(std::span<char> buffer, Problem&) override
    {
        constexpr std::size_t longest = 100;
        const std::size_t size = std::min({ longest, buffer.size(), rest.size() });
        std::memcpy(buffer.data(), rest.data(), size);
        rest.remove_prefix(size);
        return size;
    }

private:
    std::string_view rest;
};

void check(const LogLine& line)
{
    if (line.address.empty() || line.bytes < 0 || line.status < 0 || line.time < 0)
        qFatal("a line that makes no sense was taken for a request");
    const QString shown = Shown::path(line.target);
    for (const QChar character : shown) {
        if (character.category() == QChar::Other_Control)
            qFatal("a path would reach terminals as it is");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Pieces pieces({ reinterpret_cast<const char*>(data), size });
    LogBook book(KeyedHash({ 1, 2 }), nullptr);
    LineParser parser;
    LogLine request;
    const Problem problem = LogLines::read(pieces, [&](const LogLines::Line& line) {
        if (parser.parse(line.text, request) != LineFault::None)
            return;
        check(request);
        book.add(request);
    });
    if (problem)
        qFatal("%s", qPrintable(*problem));
    const QList<Adoption> adoptions = Adoptions::in(book);
    for (const Adoption& adoption : adoptions) {
        qint64 players = adoption.unknown;
        for (const PublicationAdoption& publication : adoption.publications)
            players += publication.players;
        if (players != adoption.players)
            qFatal("players have got lost");
    }
    Troubles::in(book);
    return 0;
}
