#include "tests/net/folderlog.h"
#include "tests/support/applicationfolder.h"

#include <QDir>
#include <QFile>

#include <array>

#include <windows.h>

namespace TestSupport {

namespace {

constexpr DWORD watched = FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_DIR_NAME
    | FILE_NOTIFY_CHANGE_SIZE | FILE_NOTIFY_CHANGE_LAST_WRITE;

// Its removal is the last event of each batch.
const QString marker = "end of the batch";

QString nameOf(DWORD action)
{
    switch (action) {
    case FILE_ACTION_ADDED:
        return "created ";
    case FILE_ACTION_MODIFIED:
        return "written ";
    case FILE_ACTION_REMOVED:
        return "removed ";
    case FILE_ACTION_RENAMED_OLD_NAME:
        return "moved from ";
    case FILE_ACTION_RENAMED_NEW_NAME:
        return "moved to ";
    default:
        return "lost events ";
    }
}

} // namespace

struct FolderLog::Watch {
    explicit Watch(const QString& path)
        : folder(path)
        , handle(CreateFileW(
              reinterpret_cast<const wchar_t*>(QDir::toNativeSeparators(path).utf16()),
              FILE_LIST_DIRECTORY, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
              OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OVERLAPPED, nullptr))
    {
        overlapped.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    }
    ~Watch()
    {
        CancelIo(handle);
        CloseHandle(handle);
        CloseHandle(overlapped.hEvent);
    }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    void listen()
    {
        if (ReadDirectoryChangesW(
                handle, buffer.data(), static_cast<DWORD>(buffer.size()), FALSE, watched, nullptr,
                &overlapped, nullptr)
            == 0)
            qFatal("cannot watch %s", qPrintable(folder));
    }

    /// What has come since the last call; waits until there is something.
    QStringList read()
    {
        DWORD size = 0;
        if (GetOverlappedResult(handle, &overlapped, &size, TRUE) == 0 || size == 0)
            return { "lost events" };
        QStringList events;
        const char* at = buffer.data();
        for (DWORD step = 1; step != 0; at += step) {
            const auto* event = reinterpret_cast<const FILE_NOTIFY_INFORMATION*>(at);
            events.append(
                nameOf(event->Action)
                + QString::fromWCharArray(
                    event->FileName,
                    static_cast<qsizetype>(event->FileNameLength / sizeof(wchar_t))));
            step = event->NextEntryOffset;
        }
        listen();
        return events;
    }

    QString folder;
    HANDLE handle;
    OVERLAPPED overlapped{};
    alignas(DWORD) std::array<char, 16384> buffer{};
};

FolderLog::FolderLog(const QString& folder)
    : watch(std::make_unique<Watch>(folder))
{
    watch->listen();
}

FolderLog::~FolderLog() = default;

QStringList FolderLog::take()
{
    QFile last(watch->folder + '/' + marker);
    if (!last.open(QIODevice::WriteOnly) || !last.remove())
        qFatal("cannot write into %s", qPrintable(watch->folder));
    QStringList all;
    while (all.isEmpty() || all.constLast() != "removed " + marker)
        all += watch->read();
    // A file is reported once for each thing that writing it changes.
    QStringList events;
    for (const QString& event : std::as_const(all)) {
        if (!event.endsWith(marker) && (events.isEmpty() || events.constLast() != event))
            events.append(event);
    }
    return events;
}

} // namespace TestSupport
