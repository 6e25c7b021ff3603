// Crashes, and writes the dump that Windows would write: to the file that its first
// argument names.

#include <string>

#include <windows.h>
// Needs what stands in the one above.
#include <dbghelp.h>

namespace {

std::string dumpFile;

LONG WINAPI writeDump(EXCEPTION_POINTERS* exception)
{
    HANDLE file = CreateFileA(
        dumpFile.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    MINIDUMP_EXCEPTION_INFORMATION information{ GetCurrentThreadId(), exception, FALSE };
    const BOOL written = MiniDumpWriteDump(
        GetCurrentProcess(), GetCurrentProcessId(), file, MiniDumpNormal, &information, nullptr,
        nullptr);
    CloseHandle(file);
    ExitProcess(written != 0 ? 42 : 1);
}

[[gnu::noinline]] int readNumber(const volatile int* number)
{
    return *number + 1; // crashes here
}

[[gnu::noinline]] int twiceTheNumber(const volatile int* number)
{
    return readNumber(number) * 2; // by way of here
}

} // namespace

int main(int argc, char* argv[])
{
    if (argc != 2)
        return 2;
    dumpFile = argv[1];
    SetUnhandledExceptionFilter(writeDump);
    return twiceTheNumber(nullptr);
}
