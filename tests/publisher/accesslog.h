#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>

#include <optional>

/// An access log in the making. Every line is a launcher's request for a manifest,
/// answered in full, unless told otherwise.
class AccessLog {
public:
    /// A moment of the logs: so many seconds after they begin.
    static QDateTime at(qint64 seconds);

    struct Request {
        /// Of the player's address.
        int player = 1;
        qint64 second = 0;
        QString target = QStringLiteral("/patch.ini");
        int status = 200;
        qint64 bytes = 10'000;
        /// Dates of the player's copy and of the file, in seconds as above; none for
        /// combined lines.
        std::optional<qint64> copy = std::nullopt;
        std::optional<qint64> file = std::nullopt;
        QString agent = QStringLiteral("Tarnwick Launcher");
        double duration = 0.01;
    };

    AccessLog& add(const Request& request);
    /// Anything.
    AccessLog& addText(const QByteArray& text);

    QByteArray text() const;
    /// Its path, below the application folder.
    QString write(const QString& name = QStringLiteral("access.log")) const;

    const QList<QByteArray>& lines() const;

private:
    QList<QByteArray> all;
};
