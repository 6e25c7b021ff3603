#include "publisher/cli/commandline.h"

#include <QCoreApplication>
#include <QFile>

#include <cstdio>

namespace {

/// What the toolkit finds worth a warning is no word to an admin: whatever matters
/// is told by the commands, with a way on.
void leaveOut(QtMsgType type, const QMessageLogContext&, const QString& text)
{
    if (type == QtFatalMsg)
        std::fprintf(stderr, "halden-publish: %s\n", qPrintable(text));
}

} // namespace

int main(int argc, char* argv[])
{
    qInstallMessageHandler(leaveOut);
    const QCoreApplication application(argc, argv);
    QFile result;
    QFile messages;
    if (!result.open(stdout, QIODevice::WriteOnly | QIODevice::Unbuffered)
        || !messages.open(stderr, QIODevice::WriteOnly | QIODevice::Unbuffered))
        return static_cast<int>(Publisher::ExitCode::InputOutput);
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    return static_cast<int>(Publisher::runCommandLine(arguments, result, messages));
}
