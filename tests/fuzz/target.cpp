#include "tests/fuzz/target.h"

#include <QFile>

#include <cstdio>

using namespace Qt::StringLiterals;

#if defined(HALDEN_SANITIZE)
// A list that claims thousands of millions of entries asks for more memory than there
// is; without the sanitizer, too, it is told so.
extern "C" const char* __asan_default_options();
const char* __asan_default_options()
{
    return "allocator_may_return_null=1:max_allocation_size_mb=2048";
}
#endif

namespace Fuzz {

namespace {

void tellOnlyFatal(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    Q_UNUSED(context)
    if (type == QtFatalMsg)
        std::fprintf(stderr, "%s\n", qPrintable(message));
}

QString nextPath()
{
    static const QTemporaryDir folder;
    static quint64 inputs = 0;
    return folder.filePath(QString::number(++inputs) + ".ini"_L1);
}

} // namespace

QByteArray toBytes(const std::uint8_t* data, std::size_t size)
{
    // The standard allows bytes to be looked at as characters.
    return { reinterpret_cast<const char*>(data), static_cast<qsizetype>(size) };
}

void silenceToolkit()
{
    qInstallMessageHandler(tellOnlyFatal);
}

InputFile::InputFile(const QByteArray& content)
    : filePath(nextPath())
{
    QFile file(filePath);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write %s", qPrintable(filePath));
}

InputFile::~InputFile()
{
    QFile::remove(filePath);
}

QString InputFile::path() const
{
    return filePath;
}

} // namespace Fuzz

extern "C" [[gnu::weak]] int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    Q_UNUSED(argc)
    Q_UNUSED(argv)
    Fuzz::silenceToolkit();
    return 0;
}
