#include "core/processend.h"

#include <QtGlobal>

#include <cstdio>
#include <cstdlib>

#if defined(HALDEN_SANITIZE)
#include <sanitizer/lsan_interface.h>
#endif
#ifdef Q_OS_WIN
#include <qt_windows.h>

#include <ole2.h>
#endif

#ifdef HALDEN_COVERAGE
extern "C" void __gcov_dump(); // NOLINT(bugprone-reserved-identifier): the compiler's name
#endif

namespace {

/// What diagnostic builds would do at an ordinary end.
void reportDiagnostics()
{
#if defined(HALDEN_SANITIZE)
    __lsan_do_leak_check();
#endif
#ifdef HALDEN_COVERAGE
    __gcov_dump();
#endif
}

} // namespace

void endProcess(int exitCode)
{
    reportDiagnostics();
    std::fflush(nullptr);
#ifdef Q_OS_WIN
    // The toolkit does so when the application object is destroyed. Until then, what has
    // been copied from the window can be had only from this process.
    OleFlushClipboard();
    // Even the ending without clean-up tells every library of it there, after the
    // threads have been stopped wherever they were.
    TerminateProcess(GetCurrentProcess(), static_cast<UINT>(exitCode));
#endif
    std::_Exit(exitCode);
}
