// The main program of a fuzz target without libFuzzer: has it read each file that is
// named, and all files of each folder, once.

#include "tests/fuzz/target.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringList>

#include <cstdio>
#include <cstdlib>

namespace {

QStringList filesOf(const QString& path)
{
    if (!QFileInfo(path).isDir())
        return { path };
    QStringList files;
    const QDir folder(path);
    const QStringList names = folder.entryList(QDir::Files, QDir::Name);
    for (const QString& name : names)
        files.append(folder.filePath(name));
    return files;
}

void replay(const QString& path)
{
    // The last name is that of the input which crashes or never ends.
    std::printf("%s\n", qPrintable(path));
    std::fflush(stdout);
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("cannot read %s: %s", qPrintable(path), qPrintable(file.errorString()));
    const QByteArray input = file.readAll();
    LLVMFuzzerTestOneInput(
        reinterpret_cast<const std::uint8_t*>(input.constData()),
        static_cast<std::size_t>(input.size()));
}

} // namespace

int main(int argc, char* argv[])
{
    LLVMFuzzerInitialize(&argc, &argv);
    QStringList inputs;
    for (int i = 1; i < argc; ++i)
        inputs += filesOf(QString::fromLocal8Bit(argv[i]));
    if (inputs.isEmpty()) {
        std::fprintf(stderr, "usage: %s FILE-OR-FOLDER...\nThere is no input.\n", argv[0]);
        return EXIT_FAILURE;
    }
    for (const QString& input : std::as_const(inputs))
        replay(input);
    std::printf("%lld inputs\n", static_cast<long long>(inputs.size()));
    return EXIT_SUCCESS;
}
