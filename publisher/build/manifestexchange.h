#pragma once

#include "publisher/build/history.h"
#include "publisher/common/problem.h"
#include "publisher/common/serverlayout.h"

#include <QByteArray>

#include <functional>

namespace Publisher {

class Clock;
class ServedFolder;

/// A manifest that is about to go live, when all its files are in place.
struct ManifestExchange {
    Kind kind = Kind::Live;
    /// What it is called on the server.
    QString name;
    QByteArray text;
    PublicationNote note;
    /// Waits for the disk.
    bool flush = true;
    /// Whether it is a publication of its own; else only the date is new.
    bool isPublication = true;
};

/// Keeps the manifest in the history and puts it in place of the one that is live.
/// Where `verify` finds a fault in what has been written nothing goes live.
[[nodiscard]] Problem exchangeManifest(
    const ServedFolder& folder, const ManifestExchange& exchange, Clock& clock,
    const std::function<Problem(const QString& path)>& verify);

} // namespace Publisher
