#pragma once

#include "publisher/fleet/fleetfile.h"
#include "tests/publisher/commandrun.h"
#include "tests/world/fleet.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>
#include <QThread>

#include <atomic>
#include <memory>

/// An admin with a folder of patch files, a tree and a fleet. "source" and "server", the
/// tree, are those of BuildFixture.
namespace PushFixture {

/// Publishes the source into the tree, as an admin does, by this machine's clock.
void publish(const QStringList& options = {});
/// Publishes again what was live as this number of the history.
void rollBack(int number);
/// Publishes a launcher of this version and its updater into the tree.
void release(const QByteArray& version);
/// A first publication, small, with a launcher.
void layOut();
/// The same with another content: one file changed, one added, one dropped.
void moveOn();

/// The words of a push of this tree to this fleet.
QStringList pushLine(const Fleet& fleet, const QStringList& options = {});
CommandRun push(const Fleet& fleet, const QStringList& options = {});
/// The same; ends the process unless all goes well.
void pushWell(const Fleet& fleet, const QStringList& options = {});
/// All that a command has said.
QString all(const CommandRun& run);

/// What a server has but for what is its own.
QMap<QString, QByteArray> filesOf(const QString& server);
/// Whether a server has exactly what the tree's manifests publish, patch files that
/// nobody names left out; what is wrong otherwise.
QString differenceFromTree(const QString& server);
/// The files that the server's manifest names and the server does not hand out with
/// their hash, asked as players do.
QStringList brokenOn(const Fleet& fleet, const QString& server);
QStringList brokenOn(const Publisher::FleetServer& server);
/// Whether a server hands out exactly what the tree has, manifests and launcher files
/// included; what is wrong otherwise.
QString differenceServed(const Publisher::FleetServer& server);
/// Of a server with the community's host name.
Publisher::FleetServer serverAt(const QString& name, const QString& address);
/// Keeps a copy of what all servers have, and puts it back. A server alone gets what it
/// had then, whatever has come since.
void keepServers(const Fleet& fleet);
void putBack(const Fleet& fleet);
void putBack(const QString& server);
/// What a web server is started with whose clock is to be an hour ahead; `library` fakes
/// the time.
QStringList anHourAhead(const QString& library);
/// Of a file that a server has.
QDateTime dateOf(const QString& server, const QString& file);

/// A file as a server has handed it out.
struct Sighting {
    QString server;
    /// Between these the server has answered.
    QDateTime asked;
    QDateTime answered;
    int status = 0;
    QByteArray md5;
    QDateTime lastModified;
};

/// A player who asks all servers all the time while it lives.
class Watcher {
public:
    /// This file is what sightings are of.
    Watcher(const Fleet& fleet, QString file);
    Watcher(QList<Publisher::FleetServer> servers, QString file);
    ~Watcher();
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

    /// Ends it.
    void stop();
    /// What was wrong with what servers named, at any moment.
    QStringList broken() const;
    QList<Sighting> sightings() const;

private:
    void watch();

    QList<Publisher::FleetServer> servers;
    QString file;
    std::atomic<bool> ends{ false };
    QStringList faults;
    QList<Sighting> seen;
    std::unique_ptr<QThread> thread;
};

} // namespace PushFixture
