#include "tests/support/applicationfolder.h"
#include "tests/support/reporter.h"

#include <QDir>
#include <QFile>

#include <algorithm>

namespace TestSupport {

void placeReporter(const QString& path, const QString& report)
{
    writeFile(
        path,
        "#!/bin/sh\n"
        "line=$(printf '%s|' \"$0\" \"$(pwd -P)\" \"$@\")\n"
        "printf '%s\\n' \"$line\" >> '"
            + report.toUtf8() + "'\n");
    if (!QFile::setPermissions(path, QFile::permissions(path) | QFile::ExeOwner))
        qFatal("cannot make %s executable", qPrintable(path));
}

bool isRunning(const QString& fileName)
{
    const QStringList processes = QDir("/proc").entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    return std::any_of(processes.begin(), processes.end(), [&fileName](const QString& process) {
        return readFile("/proc/" + process + "/cmdline").contains(fileName.toUtf8());
    });
}

} // namespace TestSupport
