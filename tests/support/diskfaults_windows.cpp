#include "tests/support/diskfaults.h"

#include <QDir>

#include <windows.h>

#include <sddl.h>

namespace TestSupport {

namespace {

std::wstring nativePath(const QString& path)
{
    return QDir::toNativeSeparators(path).toStdWString();
}

/// Everybody's rights, in the system's short form.
void permit(const std::wstring& path, const wchar_t* rights)
{
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    const bool done = ConvertStringSecurityDescriptorToSecurityDescriptorW(
                          rights, SDDL_REVISION_1, &descriptor, nullptr)
            != 0
        && SetFileSecurityW(
               path.c_str(), DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION,
               descriptor)
            != 0;
    LocalFree(descriptor);
    if (!done)
        qFatal("cannot change the rights of %ls", path.c_str());
}

/// A file as another program has it open, which shares this much of it.
class OpenFile {
public:
    OpenFile(const QString& path, DWORD shared)
        : handle(CreateFileW(
            nativePath(path).c_str(), GENERIC_READ, shared, nullptr, OPEN_EXISTING,
            FILE_ATTRIBUTE_NORMAL, nullptr))
    {
        if (handle == INVALID_HANDLE_VALUE)
            qFatal("cannot open %s", qPrintable(path));
    }
    ~OpenFile()
    {
        CloseHandle(handle);
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

private:
    HANDLE handle;
};

} // namespace

struct ReadOnlyFolder::Lock {
    std::wstring path;
};

ReadOnlyFolder::ReadOnlyFolder(const QString& folder)
    : lock(new Lock{ nativePath(folder) })
{
    permit(lock->path, L"D:P(A;;FRFX;;;WD)");
}

ReadOnlyFolder::~ReadOnlyFolder()
{
    permit(lock->path, L"D:P(A;;FA;;;WD)");
}

struct UnremovableFile::Lock {
    OpenFile file;
};

UnremovableFile::UnremovableFile(const QString& path)
    : lock(new Lock{ OpenFile(path, FILE_SHARE_READ | FILE_SHARE_WRITE) })
{
}

UnremovableFile::~UnremovableFile() = default;

struct UnreadableFile::Lock {
    OpenFile file;
};

UnreadableFile::UnreadableFile(const QString& path)
    : lock(new Lock{ OpenFile(path, 0) })
{
}

UnreadableFile::~UnreadableFile() = default;

} // namespace TestSupport
