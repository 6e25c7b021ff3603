#pragma once

#include "publisher/common/finding.h"
#include "publisher/fleet/fleetfile.h"
#include "publisher/probe/probe.h"

#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

#include <optional>

namespace Publisher {

struct FleetProbeRequest {
    QList<FleetServer> servers;
    /// What each of them is asked; their addresses are filled in.
    ProbeRequest probe;
};

/// What one server has answered at one of its addresses.
struct ProbedAddress {
    QString server;
    QString address;
    bool isReached = false;
    qint64 files = 0;
    /// Days until its certificate ends.
    std::optional<qint64> certificateDays = {};
    /// SHA-256 of its certificate, in hexadecimal digits.
    QString certificate = {};
    /// Roots of this machine that its chain can end in, the oldest first.
    QList<SeenCertificate> roots = {};
    /// The best version and cipher that it and this machine have in common.
    QString tls = {};
    QMap<QString, SeenFile> seen = {};
    QList<Finding> findings = {};
    QString error = {};

    /// "north (192.0.2.10:443)".
    QString name() const;
};

struct FleetProbeReport {
    QList<ProbedAddress> addresses;
    /// Of the servers by themselves; the subject begins with the server.
    QList<Finding> findings;
    /// What the same question is answered with by one and not by another.
    QList<Finding> differences;
    QStringList errors;

    bool isEachReached() const;
};

/// Asks each server of a fleet, by each of its addresses, what launchers ask.
FleetProbeReport probeFleet(const FleetProbeRequest& request);

} // namespace Publisher
