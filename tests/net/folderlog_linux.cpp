#include "tests/net/folderlog.h"

#include <QFile>

#include <array>
#include <sys/inotify.h>
#include <unistd.h>

namespace TestSupport {

namespace {

constexpr uint32_t watched = IN_CREATE | IN_CLOSE_WRITE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;

QString nameOf(uint32_t event)
{
    switch (event & watched) {
    case IN_CREATE:
        return "created ";
    case IN_CLOSE_WRITE:
        return "written ";
    case IN_DELETE:
        return "removed ";
    case IN_MOVED_FROM:
        return "moved from ";
    case IN_MOVED_TO:
        return "moved to ";
    default:
        return "lost events ";
    }
}

} // namespace

struct FolderLog::Watch {
    int descriptor = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
};

FolderLog::FolderLog(const QString& folder)
    : watch(std::make_unique<Watch>())
{
    if (inotify_add_watch(watch->descriptor, QFile::encodeName(folder).constData(), watched) < 0)
        qFatal("cannot watch %s", qPrintable(folder));
}

FolderLog::~FolderLog()
{
    close(watch->descriptor);
}

QStringList FolderLog::take()
{
    QStringList events;
    alignas(inotify_event) std::array<char, 4096> buffer{};
    for (ssize_t size = 0; (size = read(watch->descriptor, buffer.data(), buffer.size())) > 0;) {
        for (ssize_t at = 0; at < size;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer.data() + at);
            events.append(nameOf(event->mask) + QFile::decodeName(event->name));
            at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        }
    }
    return events;
}

} // namespace TestSupport
