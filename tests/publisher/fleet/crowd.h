#pragma once

#include <QJsonObject>
#include <QProcess>
#include <QString>
#include <QStringList>

/// Many players who start their launchers again and again, each asking a server by
/// chance at each request. Whatever fails ends the process.
class Crowd {
public:
    /// `servers` are "HOST:PORT"; the options those of the program that plays them.
    Crowd(const QStringList& servers, const QStringList& options);
    ~Crowd();
    Crowd(const Crowd&) = delete;
    Crowd& operator=(const Crowd&) = delete;

    /// How many requests have been answered, as far as they are written down.
    qint64 requests() const;
    /// Returns when so many more have been.
    void awaitRequests(qint64 more) const;
    /// What they have met, after two more starts of everybody.
    QJsonObject end();
    /// What must not have happened to anybody, in a line; empty when it has not.
    static QString harm(const QJsonObject& report);

private:
    QProcess process;
};
