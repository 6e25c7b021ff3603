#include "tests/support/applicationfolder.h"
#include "tests/support/reporter.h"

#include <QFile>

#include <windows.h>

#include <tlhelp32.h>

namespace TestSupport {

void placeReporter(const QString& path, const QString& report)
{
    QFile::remove(path);
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
