#pragma once

#include <QString>
#include <QStringList>

namespace Publisher {

struct Adoption;
struct PublicationAdoption;
struct Report;

/// The report for people. Its sentences serve the page as well.
namespace ReportText {

QStringList lines(const Report& report);

/// "live manifest", "launcher".
QString nameOf(const Adoption& adoption);
/// "number 4 (2026-11-20 18:00 UTC), spring patch".
QString nameOf(const PublicationAdoption& publication);
/// "50 % after 2 hours, 90 % after 1.5 days, 99 % not yet".
QString pace(const PublicationAdoption& publication);
/// What the logs say about themselves.
QStringList quality(const Report& report);
/// The day after the latest publication; empty where the logs have it not.
QString patchDay(const Report& report);

/// In UTC, to the minute.
QString time(qint64 secondsSince1970);
QString duration(qint64 seconds);
/// "1,234".
QString number(qint64 value);
/// "12.3 Mbit/s".
QString rate(double bytesPerSecond);

} // namespace ReportText

} // namespace Publisher
