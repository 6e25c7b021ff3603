#pragma once

#include "publisher/report/report.h"

#include <QList>
#include <QString>

/// Pictures of a report as SVG, for a page whose style gives them their colours.
namespace Publisher::Chart {

struct Curve {
    QString name;
    /// Of how many players.
    qint64 players = 0;
    QList<std::pair<qint64, qint64>> points;
};

/// As many curves can be told apart.
inline constexpr qsizetype mostCurves = 3;

/// How many of a hundred have it, by time. `title` is what a reader hears who sees
/// nothing.
QString adoption(const QString& title, const QList<Curve>& curves);
/// A bar for each step.
QString load(const QString& title, const Load& load);

} // namespace Publisher::Chart
