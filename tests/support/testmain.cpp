#include "tests/support/testmain.h"

#include "tests/support/applicationfolder.h"

#include <QCoreApplication>
#include <QLocale>

#include <cstdio>
#include <cstdlib>

namespace TestSupport {

namespace {

bool testsAreRunning = false;

void failIfTestsAreRunning()
{
    if (!testsAreRunning)
        return;
    std::fputs("The process was ended in the middle of the tests.\n", stderr);
    std::_Exit(3);
}

} // namespace

ExitGuard::ExitGuard()
{
    testsAreRunning = true;
    if (std::atexit(&failIfTestsAreRunning) != 0)
        qFatal("no room for an exit handler");
}

ExitGuard::~ExitGuard()
{
    testsAreRunning = false;
}

void requireSandbox()
{
    if (QCoreApplication::applicationDirPath() == sandboxApplicationFolder())
        return;
    std::fprintf(
        stderr,
        "This test writes and deletes beside its own program. Run it through ctest, or with\n"
        "./scripts/sandbox --hosts BUILD/tests/hosts --read . --install -- TEST [ARGUMENTS]\n");
    std::exit(2);
}

void settleEnvironment()
{
    qputenv("TZ", "UTC");
    tzset();
    QLocale::setDefault(QLocale::c());
}

} // namespace TestSupport
