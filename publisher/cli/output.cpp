#include "publisher/cli/output.h"

#include <QIODevice>
#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

/// Names may hold line ends and what terminals obey.
QString onOneLine(const QString& text)
{
    QString shown;
    for (const QChar character : text) {
        if (character == u'\n')
            shown += R"(\n)"_L1;
        else if (character.category() == QChar::Other_Control)
            shown += u"\\x%1"_s.arg(character.unicode(), 2, 16, QChar(u'0'));
        else
            shown += character;
    }
    return shown;
}

} // namespace

Output::Output(QIODevice& result, QIODevice& messages)
    : resultDevice(result)
    , messageDevice(messages)
{
}

void Output::setForm(Form form)
{
    chosenForm = form;
}

Output::Form Output::form() const
{
    return chosenForm;
}

void Output::line(const QString& text)
{
    if (chosenForm == Form::Text)
        resultDevice.write(onOneLine(text).toUtf8() + '\n');
}

void Output::set(const QString& key, const QJsonValue& value)
{
    document.insert(key, value);
}

void Output::error(const QString& sentence)
{
    messageDevice.write("halden-publish: " + onOneLine(sentence).toUtf8() + '\n');
    errors.append(sentence);
}

void Output::finish(ExitCode code)
{
    if (chosenForm == Form::Text)
        return;
    if (!errors.isEmpty())
        document.insert(u"errors"_s, errors);
    document.insert(u"exitCode"_s, static_cast<int>(code));
    resultDevice.write(QJsonDocument(document).toJson());
}

} // namespace Publisher
