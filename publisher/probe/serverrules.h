#pragma once

#include "publisher/common/finding.h"
#include "publisher/probe/probeanswer.h"

#include <QString>
#include <QUrl>

#include <optional>

/// What a server must be before it is asked for files: there, trusted, and speaking
/// TLS 1.2.
namespace Publisher::ServerRules {

/// A base address that launchers do not even try.
std::optional<Finding> address(const QUrl& baseUrl);
/// A certificate that is valid for less than `wanted` days.
std::optional<Finding> certificateDays(const QString& host, qint64 days, int wanted);
/// A certificate that launchers do not trust.
std::optional<Finding> trust(const QString& host, const ProbeAnswer& answer);
/// Nobody there, or nobody who says anything. Nothing for a failure that may as well
/// come of the TLS version.
std::optional<Finding>
presence(const QString& host, const ProbeAnswer& failure, int secondsOfSilence);
/// From an answer to a question over any version of TLS, after one over TLS 1.2 had
/// failed.
std::optional<Finding> tlsVersion(const QString& host, const ProbeAnswer& answer);
/// From an answer to the plain address `url`, after no version of TLS was spoken
/// there; `error` is how TLS had failed.
Finding plainHttp(const QUrl& url, const ProbeAnswer& answer, const QString& error);

} // namespace Publisher::ServerRules
