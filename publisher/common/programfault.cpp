#include "publisher/common/programfault.h"

#include "updater/programheader.h"

#include <span>

namespace Publisher {

QString faultOfProgram(QByteArrayView head, qint64 size)
{
    const auto bytes = std::as_bytes(std::span(head.data(), static_cast<std::size_t>(head.size())));
    // Players on Linux are developers, on machines of any kind; their programs are
    // published the same way.
    const Updater::ProgramKind kind = head.startsWith("\x7f")
        ? Updater::ProgramKind{ Updater::ProgramFormat::Elf, {} }
        : Updater::windowsProgram;
    const char* const fault = Updater::findFault(kind, bytes, static_cast<std::uint64_t>(size));
    return QString::fromLatin1(fault);
}

} // namespace Publisher
