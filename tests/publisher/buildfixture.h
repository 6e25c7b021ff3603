#pragma once

#include "publisher/build/build.h"
#include "publisher/common/clock.h"

#include <QByteArray>
#include <QDateTime>
#include <QMap>
#include <QString>
#include <QStringList>

/// What the publisher's tests publish: "source" and "server" lie in the
/// application folder.
namespace BuildFixture {

QString source(const QString& relativePath = {});
QString server(const QString& relativePath = {});

/// What lies in the server folder but for the history.
QMap<QString, QByteArray> servedFiles();

/// Writes a file of the source.
void put(const QString& relativePath, const QByteArray& content);

/// A clock that stands still; whoever waits sets it forward.
class StandingClock : public Publisher::Clock {
public:
    explicit StandingClock(const QDateTime& start);

    QDateTime now() const override;
    void waitUntil(const QDateTime& time) override;
    void forward(qint64 seconds);

    int waits = 0;

private:
    QDateTime time;
};

/// Live, for Windows players, one thread, without waiting for the disk.
Publisher::BuildRequest request();

/// Publishes with a clock of this machine; fails the process unless it ends so.
Publisher::BuildReport published(const Publisher::BuildRequest& wanted);
Publisher::BuildReport published();

/// Where the server has the present content of a source file, relative to the
/// server folder.
QString placeOf(const QString& relativePath, const QString& kind = "live");

/// Whether two names are names of one file; false where one of them is nobody's.
bool isSameFile(const QString& one, const QString& other);

QDateTime dateOf(const QString& path);
void setDate(const QString& path, const QDateTime& date);

QStringList pathsOf(const QList<Publisher::BuildReport::Item>& items);
QStringList idsOf(const QList<Publisher::Finding>& refusals);
/// What it says, with its remedy.
QString reasonOf(const Publisher::Finding& refusal);

} // namespace BuildFixture
