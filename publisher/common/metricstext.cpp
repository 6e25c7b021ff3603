#include "publisher/common/metricstext.h"

#include <QStringList>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

QString escaped(QString value)
{
    return value.replace(u'\\', u"\\\\"_s).replace(u'"', u"\\\""_s).replace(u'\n', u"\\n"_s);
}

} // namespace

void MetricsText::begin(const QString& name, const QString& help)
{
    current = name;
    written += u"# HELP %1 %2\n# TYPE %1 gauge\n"_s.arg(name, help);
}

void MetricsText::add(const Labels& labels, qint64 value)
{
    addText(labels, QString::number(value));
}

void MetricsText::addFraction(const Labels& labels, double value)
{
    constexpr int exactDigits = 17;
    addText(labels, QString::number(value, 'g', exactDigits));
}

void MetricsText::addText(const Labels& labels, const QString& value)
{
    QStringList shown;
    for (const auto& [name, label] : labels)
        shown.append(name + u'=' + u'"' + escaped(label) + u'"');
    const QString braced = shown.isEmpty() ? QString() : u'{' + shown.join(u',') + u'}';
    written += current + braced + u' ' + value + u'\n';
}

QByteArray MetricsText::text() const
{
    return written.toUtf8();
}

} // namespace Publisher
