#include "tests/publisher/commandrun.h"

#include "publisher/cli/commandline.h"

#include <QBuffer>
#include <QJsonArray>
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

QStringList CommandRun::findings() const
{
    QStringList all;
    const QJsonArray findings = json.value("findings").toArray();
    for (const QJsonValue value : findings)
        all.append(value["id"].toString() + ' ' + value["subject"].toString());
    all.sort();
    return all;
}
