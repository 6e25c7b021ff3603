#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QStringList>

/// What the tests of the update run lay out in the application folder.
namespace UpdateFixture {

/// Writes a manifest into the settings folder. Its modification time differs
/// from that of every earlier one: the settings layer goes by size and time, and
/// two tests may write files of one size within one tick of the clock.
void writeManifest(const QString& manifestName, const QByteArray& content);
/// The same, one row a line.
void writeManifest(const QString& manifestName, const QStringList& rows);

/// Appends a realm entry with this client folder.
void addRealm(const QString& clientPath, bool testRealm = false);
void setDeveloperMode(bool on);

/// Absolute path of something in the patch cache.
QString cachePath(const QString& relativePath);
QString settingsPath(const QString& fileName);
/// A path as the log shows it within quotation marks: a backslash is doubled.
QString logged(QString path);

/// Fails the process if the time cannot be set.
void setModificationTime(const QString& path, const QDateTime& time);

/// A moment with whole seconds, so that every file system and every HTTP date
/// can hold it.
QDateTime someTime();

/// Columns "kind" and "otherKind", with both kinds of patches in turn.
void addKindRows();

} // namespace UpdateFixture
