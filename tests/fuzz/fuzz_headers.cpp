// Headers of an answer against the publisher's `probe`. An input has a line for each.

#include "publisher/probe/answerheaders.h"
#include "tests/fuzz/target.h"

using namespace Qt::StringLiterals;
using Publisher::AnswerHeaders;

namespace {

AnswerHeaders::RawHeaders headersIn(const QByteArray& text)
{
    AnswerHeaders::RawHeaders headers;
    const QList<QByteArray> lines = text.split('\n');
    for (const QByteArray& line : lines) {
        const qsizetype colon = line.indexOf(':');
        if (colon > 0)
            headers.append({ line.left(colon).trimmed(), line.mid(colon + 1).trimmed() });
    }
    return headers;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const AnswerHeaders headers = AnswerHeaders::read(headersIn(Fuzz::toBytes(data, size)));
    if (headers.secondsInCaches() < 0)
        qFatal("caches keep it for a negative time");
    headers.lastModified.toUTC().toString();
    headers.date.toUTC().toString();
    const QUrl asked(u"https://server/folder/patch.ini"_s);
    asked.resolved(headers.redirect).toString();
    return 0;
}
