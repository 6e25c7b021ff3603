#include "publisher/frame.h"

#include <QCoreApplication>
#include <QFile>

#include <cstdio>

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    QFile result;
    QFile messages;
    if (!result.open(stdout, QIODevice::WriteOnly | QIODevice::Unbuffered)
        || !messages.open(stderr, QIODevice::WriteOnly | QIODevice::Unbuffered))
        return static_cast<int>(ExitCode::InputOutput);
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    return static_cast<int>(runCommandLine(arguments, allCommands(), result, messages));
}
