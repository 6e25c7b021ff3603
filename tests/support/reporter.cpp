#include "tests/support/reporter.h"

#include "tests/support/applicationfolder.h"

namespace TestSupport {

QList<QStringList> reportedStarts(const QString& report)
{
    QList<QStringList> starts;
    QStringList lines = QString::fromUtf8(readFile(report)).split('\n');
    // Empty, or of a start that is still being reported.
    lines.removeLast();
    for (const QString& line : std::as_const(lines))
        starts.append(line.chopped(1).split('|'));
    return starts;
}

} // namespace TestSupport
