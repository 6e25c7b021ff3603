#pragma once

#include "publisher/fleet/fleetfile.h"
#include "publisher/probe/probeanswer.h"

#include <QList>
#include <QStringList>
#include <QUrl>

#include <functional>

/// What players are given by one server of several.
namespace Publisher::WebQuestions {

using TakeBytes = std::function<void(qint64)>;

/// Asks the server by this address of its own for these files, each to its end, and
/// returns the answers in the same order.
QList<ProbeAnswer>
ask(const FleetServer& server, const ConnectAddress& by, const QStringList& paths,
    int secondsOfSilence, const TakeBytes& take = {});

/// Why the answer is no file, as the rest of a sentence; empty when it is one.
QString fault(const ProbeAnswer& answer, int secondsOfSilence);

} // namespace Publisher::WebQuestions
