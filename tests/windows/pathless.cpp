// Takes the place of a function that the updater would import from Windows.

#include <windows.h>

extern "C" {

static DWORD WINAPI tellNoPath(HANDLE /*file*/, wchar_t* /*path*/, DWORD /*size*/, DWORD /*flags*/)
{
    SetLastError(ERROR_INVALID_FUNCTION);
    return 0;
}

// NOLINTNEXTLINE(bugprone-reserved-identifier): the linker's name for an import.
decltype(&tellNoPath) __imp_GetFinalPathNameByHandleW = tellNoPath;
}
