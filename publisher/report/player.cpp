#include "publisher/report/player.h"

#include "publisher/report/filetally.h"
#include "publisher/report/logline.h"

namespace Publisher {

void Had::add(const LogLine& line)
{
    if (line.bytes + FileTally::slack < bytes)
        return;
    if (line.bytes > bytes + FileTally::slack) {
        answers = 0;
        needless = 0;
        times = {};
        copies = {};
    }
    bytes = std::max(bytes, line.bytes);
    ++answers;
    times.add(line.time);
    if (!line.ifModifiedSince)
        return;
    copies.add(*line.ifModifiedSince);
    if (line.lastModified && *line.ifModifiedSince >= *line.lastModified)
        ++needless;
}

} // namespace Publisher
