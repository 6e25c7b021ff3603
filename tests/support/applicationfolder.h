#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>

namespace TestSupport {

/// Where the sandbox puts the program under test.
QString sandboxApplicationFolder();

/// The folder beside the test program, where the launcher keeps everything.
/// Each test starts with `clear()` in its `init()` and so has a folder of its
/// own: nothing of an earlier test is left but the program itself.
namespace ApplicationFolder {

void clear();
QString path();
/// Absolute path of something below the application folder.
QString path(const QString& relativePath);

} // namespace ApplicationFolder

/// Writes a file and the folders above it; fails the process if it cannot.
void writeFile(const QString& path, const QByteArray& content);
/// Content of a file, a null array when there is none.
QByteArray readFile(const QString& path);
/// Every file below a folder with its content, by relative path.
QMap<QString, QByteArray> filesBelow(const QString& folder);
/// Lower-case hexadecimal MD5.
QString md5(const QByteArray& content);

} // namespace TestSupport
