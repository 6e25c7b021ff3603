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
    void addFraction(const Labels& labels, double value);
    QByteArray text() const;

private:
    void addText(const Labels& labels, const QString& value);

    QString current;
    QString written;
};

} // namespace Publisher
