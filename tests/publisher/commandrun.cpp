#include "tests/publisher/commandrun.h"

#include "publisher/cli/commandline.h"

#include <QBuffer>
#include <QJsonDocument>

using namespace Publisher;

CommandRun::CommandRun(const QStringList& arguments)
{
    QBuffer result;
    QBuffer messageBuffer;
    result.open(QIODevice::WriteOnly);
    messageBuffer.open(QIODevice::WriteOnly);
    code = runCommandLine(arguments, result, messageBuffer);
    text = QString::fromUtf8(result.data());
    json = QJsonDocument::fromJson(result.data()).object();
    messages = QString::fromUtf8(messageBuffer.data());
}
