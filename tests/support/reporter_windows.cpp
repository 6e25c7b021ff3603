#include "tests/support/applicationfolder.h"
#include "tests/support/patience.h"
#include "tests/support/reporter.h"

#include <QFile>
#include <QTest>

#include <windows.h>

#include <tlhelp32.h>

namespace TestSupport {

void placeReporter(const QString& path, const QString& report)
{
    // The one of an earlier test may still be running, and its file stays as long.
    const auto isFree = [&path] {
        return QFile::remove(path) || !QFile::exists(path);
    };
    if (!QTest::qWaitFor(isFree, patience))
        qFatal("%s does not end", qPrintable(path));
    writeFile(path, readFile(HALDEN_REPORTER));
    writeFile(path + ".report", report.toUtf8());
}

bool isRunning(const QString& fileName)
{
    PROCESSENTRY32W process{};
    process.dwSize = sizeof process;
    bool found = false;
    HANDLE all = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    for (BOOL more = Process32FirstW(all, &process); more != 0 && !found;
         more = Process32NextW(all, &process)) {
        found = QString::fromWCharArray(process.szExeFile).compare(fileName, Qt::CaseInsensitive)
            == 0;
    }
    CloseHandle(all);
    return found;
}

} // namespace TestSupport
