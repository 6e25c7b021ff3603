#include "publisher/report/logsource.h"

#include "publisher/report/packedlog.h"

#include <QFile>
#include <QFileInfo>

#include <cstdio>
#include <cstring>
#include <utility>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

class PlainLog : public LogSource {
public:
    Problem open(const QString& path)
    {
        name = path == "-"_L1 ? u"standard input"_s : path;
        const bool isOpen = path == "-"_L1
            ? file.open(stdin, QIODevice::ReadOnly | QIODevice::Unbuffered)
            : !QFileInfo(path).isDir() && openNamed(path);
        if (!isOpen)
            return u"%1 cannot be read: %2"_s.arg(name, reason());
        return std::nullopt;
    }

    std::size_t read(std::span<char> buffer, Problem& problem) override
    {
        const std::size_t early = takeBeginning(buffer);
        if (early > 0)
            return early;
        const qint64 got = file.read(buffer.data(), static_cast<qint64>(buffer.size()));
        if (got < 0)
            problem = u"%1 cannot be read: %2"_s.arg(name, file.errorString());
        return got > 0 ? static_cast<std::size_t>(got) : 0;
    }

    /// What `read()` will begin with; shorter only where the log is.
    QByteArray peek(qsizetype size)
    {
        while (beginning.size() < size) {
            const QByteArray more = file.read(size - beginning.size());
            if (more.isEmpty())
                break;
            beginning += more;
        }
        return beginning;
    }

private:
    bool openNamed(const QString& path)
    {
        file.setFileName(path);
        return file.open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    }

    QString reason() const
    {
        return QFileInfo(name).isDir() ? u"it is a folder; name the logs in it"_s
                                       : file.errorString();
    }

    std::size_t takeBeginning(std::span<char> buffer)
    {
        const auto size = std::min(buffer.size(), static_cast<std::size_t>(beginning.size()));
        std::memcpy(buffer.data(), beginning.constData(), size);
        beginning.remove(0, static_cast<qsizetype>(size));
        return size;
    }

    QFile file;
    QString name;
    QByteArray beginning;
};

std::unique_ptr<LogSource>
built(std::unique_ptr<LogSource> log, const QString& path, Problem& problem)
{
    if (!log)
        problem = u"%1 is packed in a way that this halden-publish was built without; unpack it "
                  "first, or through a pipe with - for the log"_s.arg(path);
    return log;
}

} // namespace

std::unique_ptr<LogSource> LogSource::open(const QString& path, Problem& problem)
{
    auto plain = std::make_unique<PlainLog>();
    problem = plain->open(path);
    if (problem)
        return nullptr;
    const QByteArray beginning = plain->peek(PackedLog::sizeOfAMark);
    if (PackedLog::isGzip(beginning))
        return built(PackedLog::gzip(std::move(plain)), path, problem);
    if (PackedLog::isZstandard(beginning))
        return built(PackedLog::zstandard(std::move(plain)), path, problem);
    return plain;
}

} // namespace Publisher
