#pragma once

#include "publisher/common/exitcode.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QString>

class QIODevice;

namespace Publisher {

/// What a command says: lines for people, or one JSON document for machines.
/// Every command gives both; the form chosen decides which of them appears.
class Output {
public:
    enum class Form {
        Text,
        Json,
    };

    /// Neither device is owned. `messages` is for errors and progress.
    Output(QIODevice& result, QIODevice& messages);

    void setForm(Form form);
    Form form() const;

    /// A line of the result, whatever is in it; not in JSON.
    void line(const QString& text = {});
    /// A member of the JSON document; not in text.
    void set(const QString& key, const QJsonValue& value);
    /// A sentence on what went wrong: a line among the messages and, in JSON,
    /// an element of "errors".
    void error(const QString& sentence);
    /// Ends the JSON document, which bears the exit code as "exitCode".
    void finish(ExitCode code);

private:
    QIODevice& resultDevice;
    QIODevice& messageDevice;
    Form chosenForm = Form::Text;
    QJsonObject document;
    QJsonArray errors;
};

} // namespace Publisher
