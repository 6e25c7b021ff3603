// Adds to a file how it was started, a line a start: its own path, its working
// folder and its arguments, each with "|" behind it. The file is named in another
// one, which lies beside the program and is called like it with ".report". With
// "--stay" it reports nothing and stays until it is killed.

#include <string>

#include <windows.h>

namespace {

constexpr DWORD longestPath = 32'768;

std::string utf8(const std::wstring& text)
{
    const int length = static_cast<int>(text.size());
    const int size
        = WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string bytes(static_cast<std::size_t>(size), ' ');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), length, bytes.data(), size, nullptr, nullptr);
    return bytes;
}

std::wstring wide(const std::string& text)
{
    const int length = static_cast<int>(text.size());
    const int size = MultiByteToWideChar(CP_UTF8, 0, text.data(), length, nullptr, 0);
    std::wstring letters(static_cast<std::size_t>(size), L' ');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), length, letters.data(), size);
    return letters;
}

std::string withSlashes(std::string path)
{
    for (char& letter : path)
        letter = letter == '\\' ? '/' : letter;
    return path;
}

std::wstring ownPath()
{
    std::wstring path(longestPath, L' ');
    path.resize(GetModuleFileNameW(nullptr, path.data(), longestPath));
    return path;
}

std::wstring workingFolder()
{
    std::wstring path(longestPath, L' ');
    path.resize(GetCurrentDirectoryW(longestPath, path.data()));
    return path;
}

std::string contentOf(const std::wstring& path)
{
    HANDLE file = CreateFileW(
        path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL,
        nullptr);
    std::string bytes(longestPath, ' ');
    DWORD size = 0;
    if (ReadFile(file, bytes.data(), longestPath, &size, nullptr) == 0)
        size = 0;
    CloseHandle(file);
    bytes.resize(size);
    return bytes;
}

/// In one piece, at the end of the file.
bool append(const std::wstring& path, const std::string& line)
{
    HANDLE file = CreateFileW(
        path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
        nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    DWORD written = 0;
    const BOOL done
        = WriteFile(file, line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
    CloseHandle(file);
    return done != 0 && written == line.size();
}

} // namespace

int main(int argc, char* argv[])
{
    if (argc == 2 && std::string(argv[1]) == "--stay")
        return WaitForSingleObject(GetCurrentProcess(), INFINITE) == WAIT_FAILED ? 1 : 0;
    std::string line
        = withSlashes(utf8(ownPath())) + '|' + withSlashes(utf8(workingFolder())) + '|';
    for (int i = 1; i < argc; ++i)
        line += std::string(argv[i]) + '|';
    return append(wide(contentOf(ownPath() + L".report")), line + '\n') ? 0 : 1;
}
