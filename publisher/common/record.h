#pragma once

#include "publisher/common/problem.h"
#include "publisher/common/serverlayout.h"

#include <QByteArray>
#include <QDateTime>
#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QString>

#include <optional>

namespace Publisher {

/// A file as it was published.
struct RecordedFile {
    /// On the server, relative to what it serves.
    QString path = {};
    qint64 size = -1;
    /// Hashes in lower-case hexadecimal.
    QByteArray md5 = {};
    QByteArray sha256 = {};
    QDateTime date = {};
    /// When it was.
    QDateTime published = {};
};

/// What has been published, from the publishing machine's own sight: what a server
/// sends can be held against it. A text file to which publications add lines, a JSON
/// object for each file that has come, or changed, or gone.
class Record {
public:
    /// By their paths.
    using Files = QMap<QString, RecordedFile>;

    /// Takes in the lines of a text. The problem names the line that cannot be read.
    [[nodiscard]] Problem read(const QByteArray& text);
    QByteArray text() const;
    /// How many lines have come besides those that were read.
    qsizetype newLines() const;

    /// Whether something is published under the name of a manifest or program.
    bool knows(const QString& name) const;
    /// What is published with a manifest, itself included, or a program alone.
    Files files(const QString& name) const;
    /// What was published under the name before, such bytes exactly.
    std::optional<RecordedFile> former(const QString& name, const QByteArray& sha256) const;

    /// Adds what a folder holds now of a manifest and the files that it names. A
    /// manifest that is not there takes back what it has named.
    [[nodiscard]] Problem
    followManifest(const QString& server, const QString& name, Kind kind, const QDateTime& time);
    [[nodiscard]] Problem
    followProgram(const QString& server, const QString& name, const QDateTime& time);

private:
    struct Followed;

    bool takeLine(const QByteArray& line);
    void append(const QJsonObject& line);
    [[nodiscard]] Problem follow(const Followed& followed, const QString& path);

    QByteArray lines;
    qsizetype added = 0;
    QMap<QString, Files> current;
    /// Manifests and programs, whatever has taken their place.
    QList<RecordedFile> all;
};

} // namespace Publisher
