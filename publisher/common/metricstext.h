#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <utility>

namespace Publisher {

/// Figures in the text format of Prometheus, all of them gauges.
class MetricsText {
public:
    using Labels = QList<std::pair<QString, QString>>;

    /// What follows up to the next call is of this name; `help` is one line.
    void begin(const QString& name, const QString& help);
    void add(const Labels& labels, qint64 value);
    QByteArray text() const;

private:
    QString current;
    QString written;
};

} // namespace Publisher
