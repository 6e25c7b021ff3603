#pragma once

#include "tests/support/httpsserver.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QMetaType>
#include <QString>

/// What a start of the launcher fetches, in the order in which it does.
enum class Target { InfoText, Updater, Launcher, Manifest, PatchFile };
Q_DECLARE_METATYPE(Target)

/// The five files as they are published and as the player has them. The contents
/// are of yesterday (the player's) and of today (the server's).
namespace Targets {

/// All five, in the order of a run.
const QList<Target>& all();
/// The target that is fetched before this one; the information text has none.
Target before(Target target);

/// The word for it in names of test rows and in tables.
QString name(Target target);
QByteArray requestPath(Target target);
QString url(Target target);
/// The file that the download replaces, below the launcher's folder.
QString relativePath(Target target);
/// Its absolute path beside the test program.
QString localPath(Target target);
/// The folder it lies in.
QString localFolder(Target target);
/// How often one start asks for it: the update runs, two of them, come after
/// the information text.
int requestsPerStart(Target target);

/// Null for the launcher, which comes under a name that was not there before.
QByteArray yesterday(Target target);
QByteArray today(Target target);

/// The published files' dates: a player who has been up to date yesterday has
/// older ones.
QDateTime yesterdayEvening();
QDateTime thisMorning();
/// A handler that answers like the administrators' server, with today's content.
TestSupport::HttpsServer::Handler published(Target target, const QDateTime& date);
/// Everything of today, where a start is about this target: the launcher on the
/// server is older than the player's unless it is the target, or every start
/// would hand over to the updater.
TestSupport::HttpsServer::Handler publishedFor(Target hit, Target target, const QDateTime& date);
void publishAllFor(
    Target hit, TestSupport::HttpsServer& server, const QDateTime& date = thisMorning());
/// What has become of a target's file: "kept" from yesterday, "whole", "as sent".
QString stateOfFile(Target target, const QString& launcherFolder);

/// The patch file in a client.
QString installedPatchFile(const QString& clientFolder);

} // namespace Targets

/// Makes a player of yesterday: all that the launcher keeps in its folder, and
/// one client. Both folders are emptied first, but for the program in the
/// launcher's.
void layOutPlayer(const QString& launcherFolder, const QString& clientFolder);
/// Writes a file of yesterday.
void placeOldFile(const QString& path, const QByteArray& content);
/// Where the player beside the test program has the client.
QString ownClientFolder();
