#pragma once

#include "publisher/common/problem.h"
#include "publisher/common/publication.h"

#include <QByteArray>
#include <QDateTime>
#include <QJsonObject>
#include <QList>
#include <QString>

namespace Publisher {

/// Who has published something, when and why.
struct PublicationNote {
    QDateTime time = {};
    /// User and machine.
    QString who = {};
    QString message = {};
    /// "build", "rollback to 3", "promote"; empty for a manifest that has come from
    /// elsewhere.
    QString command = {};

    /// A note of this user, machine and minute.
    static PublicationNote
    of(const QString& command, const QString& message, const QDateTime& time);
    QJsonObject toJson() const;
};

struct HistoryEntry {
    /// Counted from 1 in each kind.
    int number = 0;
    /// The manifest as it went live, byte by byte.
    QString manifestPath;
    PublicationNote note;
    /// Whether it is what players get now.
    bool isLive = false;
};

/// The manifests that have been live. Patch files are addressed by their content, so
/// an old manifest is all that a roll back needs as long as they have not been
/// pruned.
///
/// They lie in SERVER/.halden-history/KIND, a manifest and a note for each: hidden
/// from launchers, which never ask for such a name, and refused by the shipped
/// server configurations. What is noted and has not gone live, since the publisher
/// died in between, is no publication; the next one takes its number.
class History {
public:
    History(const QString& server, Kind kind);

    /// In the order of their numbers.
    QList<HistoryEntry> entries() const;
    /// What an entry has published.
    Publication publicationOf(const HistoryEntry& entry) const;
    /// What a player may still have: the latest publications, the youngest first.
    QList<Publication> latest(int count) const;

    /// Keeps the manifest that is live, unless that has been done, and then the one
    /// that is about to replace it.
    [[nodiscard]] Problem record(const QByteArray& manifest, const PublicationNote& note) const;

private:
    QList<HistoryEntry> stored() const;
    [[nodiscard]] Problem
    keep(int number, const QByteArray& manifest, const PublicationNote& note) const;
    QString fileOf(int number, const QString& suffix) const;

    QString livePath;
    Kind kindOfPatch;
    QString folder;
};

} // namespace Publisher
