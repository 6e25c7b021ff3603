#pragma once

#include "publisher/build/history.h"

#include <QByteArray>
#include <QString>

#include <functional>

namespace Publisher {

class Clock;

/// A manifest that is about to go live, when all its files are in place.
struct ManifestExchange {
    /// What the web server serves.
    QString server;
    Kind kind = Kind::Live;
    QByteArray text;
    PublicationNote note;
    /// Waits for the disk.
    bool flush = true;
    /// Whether it is a publication of its own; else only the date is new.
    bool isPublication = true;
};

/// Writes the manifest beside the one that is live, dates it, keeps it in the
/// history and renames it over the other, in one blow. Where `verify` finds a fault
/// in what has been written nothing goes live. Returns what has failed.
QString exchangeManifest(
    const ManifestExchange& exchange, Clock& clock,
    const std::function<QString(const QString& path)>& verify);

} // namespace Publisher
