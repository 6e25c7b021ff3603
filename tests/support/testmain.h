#pragma once

#include "core/processend.h"
#include "tests/support/patience.h"

#include <QApplication>
#include <QObject>
#include <QTest>

namespace TestSupport {

/// Ends the process with a hint unless it runs in the sandbox: the code under
/// test deletes what a manifest names and trusts what the machine trusts.
void requireSandbox();

/// Same conditions for every test: C locale, no stray time zone, UTC. Before the
/// application object is made.
void settleEnvironment();

/// While it lives, an exit() from the code under test fails the test program:
/// the exit code 0 that it asks for would otherwise pass for a verdict.
class ExitGuard {
public:
    ExitGuard();
    ~ExitGuard();
    ExitGuard(const ExitGuard&) = delete;
    ExitGuard& operator=(const ExitGuard&) = delete;
};

/// Needs the application object, and leaves it.
template <typename TestClass> int runTest(int argc, char* argv[])
{
    requireSandbox();
    TestClass test;
    const ExitGuard guard;
    return QTest::qExec(&test, argc, argv);
}

} // namespace TestSupport

/// A test program's entry point, and with it the application object. It ends as
/// the launcher does: network threads are at work here, too.
#define HALDEN_TEST_MAIN(TestClass)                                                                \
    int main(int argc, char* argv[])                                                               \
    {                                                                                              \
        TestSupport::settleEnvironment();                                                          \
        const QApplication application(argc, argv);                                                \
        endProcess(TestSupport::runTest<TestClass>(argc, argv));                                   \
    }

#ifdef Q_OS_WIN
// The test library's five seconds are short for Wine on a machine that is busy.
#undef QTRY_COMPARE
#undef QTRY_VERIFY
#define QTRY_COMPARE(actual, expected)                                                             \
    QTRY_COMPARE_WITH_TIMEOUT(actual, expected, TestSupport::patience)
#define QTRY_VERIFY(condition) QTRY_VERIFY_WITH_TIMEOUT(condition, TestSupport::patience)
#endif
