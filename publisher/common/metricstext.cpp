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
    QStringList shown;
    for (const auto& [name, label] : labels)
        shown.append(name + "=\""_L1 + escaped(label) + u'"');
    written += current + u'{' + shown.join(u',') + "} "_L1 + QString::number(value) + u'\n';
}

QByteArray MetricsText::text() const
{
    return written.toUtf8();
}

} // namespace Publisher
