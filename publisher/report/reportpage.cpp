#include "publisher/report/reportpage.h"

#include "publisher/common/progress.h"
#include "publisher/report/chart.h"
#include "publisher/report/report.h"
#include "publisher/report/reporttext.h"

#include <QFile>
#include <QList>
#include <QStringList>

using namespace Qt::StringLiterals;

// The resources of a library register themselves only when asked to.
static void registerTemplate()
{
    Q_INIT_RESOURCE(reportpage);
}

namespace Publisher {

namespace {

using ReportText::number;

/// A cell of a table; what is in it is escaped.
struct Cell {
    QString text;
    bool isNumber = false;
    bool isCode = false;
};

QString cell(const Cell& one)
{
    const QString text = one.text.toHtmlEscaped();
    return u"<td%1>%2</td>"_s.arg(
        one.isNumber ? u" class=\"number\""_s : QString(),
        one.isCode && !text.isEmpty() ? u"<code>%1</code>"_s.arg(text) : text);
}

class Table {
public:
    Table(QString tableCaption, const QList<Cell>& heads)
        : caption(std::move(tableCaption))
    {
        for (const Cell& head : heads)
            headers += u"<th scope=\"col\"%1>%2</th>"_s.arg(
                head.isNumber ? u" class=\"number\""_s : QString(), head.text.toHtmlEscaped());
    }

    void add(const QList<Cell>& cells)
    {
        QString row;
        for (const Cell& one : cells)
            row += cell(one);
        rows += u"<tr>%1</tr>\n"_s.arg(row);
    }

    /// Those who come by keyboard can scroll it.
    QString html() const
    {
        return u"<div class=\"table\" role=\"region\" tabindex=\"0\" aria-label=\"%1\">\n<table>"
               "<caption>%1</caption>\n<thead><tr>%2</tr></thead>\n<tbody>\n%3</tbody></table>\n"
               "</div>\n"_s.arg(caption.toHtmlEscaped(), headers, rows);
    }

private:
    QString caption;
    QString headers;
    QString rows;
};

QString paragraph(const QString& text)
{
    return u"<p>%1</p>\n"_s.arg(text.toHtmlEscaped());
}

/// What stands between two backticks is code.
QString paragraphWithCode(const QString& text)
{
    const QStringList parts = text.toHtmlEscaped().split(u'`');
    QString html;
    for (qsizetype i = 0; i < parts.size(); ++i)
        html += i % 2 == 1 ? u"<code>%1</code>"_s.arg(parts.at(i)) : parts.at(i);
    return u"<p>%1</p>\n"_s.arg(html);
}

QString figure(const QString& name, const QString& value)
{
    return u"<div><dt>%1</dt><dd>%2</dd></div>\n"_s.arg(
        name.toHtmlEscaped(), value.toHtmlEscaped());
}

QString figures(const Report& report)
{
    QString html = figure(u"Players"_s, number(report.players));
    for (const Adoption& adoption : report.adoption)
        html += figure(
            u"%1: without the latest"_s.arg(ReportText::nameOf(adoption)), number(adoption.behind));
    return html + figure(u"Sent"_s, humanSize(report.load.bytes))
        + figure(u"Requests"_s, number(report.load.requests))
        + figure(u"Kinds of trouble"_s, number(report.troubles.size()));
}

QString shareText(const std::optional<qint64>& seconds)
{
    return seconds ? ReportText::duration(*seconds) : u"not yet"_s;
}

QString curvesOf(const Adoption& adoption)
{
    QList<Chart::Curve> curves;
    for (auto one = adoption.publications.crbegin();
         one != adoption.publications.crend() && curves.size() < Chart::mostCurves; ++one) {
        if (!one->curve.isEmpty())
            curves.append({ ReportText::nameOf(*one), adoption.players, one->curve });
    }
    if (curves.isEmpty())
        return {};
    QStringList said;
    for (const Chart::Curve& curve : curves)
        said += u"%1: %2 of %3 players after %4"_s.arg(
            curve.name, number(curve.points.constLast().second), number(curve.players),
            ReportText::duration(curve.points.constLast().first));
    return u"<figure>\n%1<figcaption>Share of the players that had it or a later one, by the time "
           "since it was published.</figcaption>\n</figure>\n"_s.arg(
               Chart::adoption(said.join(". "_L1), curves));
}

QString adoption(const Adoption& adoption)
{
    const QString name = ReportText::nameOf(adoption);
    Table table(
        u"%1: publications and who has them"_s.arg(name),
        { { u"Publication"_s },
          { u"Players"_s, true },
          { u"50 % after"_s, true },
          { u"90 % after"_s, true },
          { u"99 % after"_s, true },
          { u"Last of them online"_s } });
    for (const PublicationAdoption& one : adoption.publications) {
        const bool hasPace = !one.curve.isEmpty();
        QList<Cell> cells{ { ReportText::nameOf(one) }, { number(one.players), true } };
        for (const auto& seconds : one.seconds)
            cells.append({ hasPace ? shareText(seconds) : u"unknown"_s, true });
        cells.append({ one.players > 0 ? ReportText::time(one.lastOnline) : u"nobody"_s });
        table.add(cells);
    }
    QString html = u"<h3>%1</h3>\n"_s.arg(name.toHtmlEscaped())
        + paragraph(u"%1 players, %2 of them without the latest."_s.arg(
            number(adoption.players), number(adoption.behind)));
    if (adoption.unknown > 0)
        html += paragraph(
            u"What %1 of them have does not come out."_s.arg(number(adoption.unknown)));
    return html + curvesOf(adoption) + table.html();
}

QString load(const Report& report)
{
    const Load& load = report.load;
    if (load.steps.isEmpty())
        return paragraph(u"The logs tell of no request."_s);
    const QString step = ReportText::duration(load.secondsOfAStep);
    const QString title = u"Requests in steps of %1. At most %2 in a minute, %3."_s.arg(
        step, number(load.mostRequests.value), ReportText::time(load.mostRequests.time));
    Table table(
        u"The busiest minutes"_s, { { u"What"_s }, { u"In a minute"_s, true }, { u"When"_s } });
    const auto add = [&](const QString& what, const QString& value, const LoadPeak& peak) {
        table.add({ { what }, { value, true }, { ReportText::time(peak.time) } });
    };
    add(u"requests"_s, number(load.mostRequests.value), load.mostRequests);
    add(u"bytes"_s, humanSize(load.mostBytes.value), load.mostBytes);
    add(u"connections"_s, number(load.mostConnections.value), load.mostConnections);
    QString html
        = u"<figure>\n%1<figcaption>Requests, each bar %2; times are UTC.</figcaption>\n</figure>\n"_s
              .arg(Chart::load(title, load), step.toHtmlEscaped())
        + table.html();
    if (load.timedDownloads > 0)
        html += paragraph(
            u"Of %1 downloads the slowest tenth had %2 at most, the slower half %3."_s.arg(
                number(load.timedDownloads), ReportText::rate(load.slowestTenth),
                ReportText::rate(load.slowerHalf)));
    const QString day = ReportText::patchDay(report);
    return day.isEmpty() ? html : html + paragraph(day);
}

QString trouble(const Trouble& trouble)
{
    Table table(
        u"The worst cases of %1"_s.arg(trouble.identifier()),
        { { u"Player or path"_s }, { u"Times"_s, true } });
    for (const Trouble::Case& one : trouble.cases)
        table.add({ { (one.player + u' ' + one.path).trimmed(), false, true },
                    { number(one.count), true } });
    const QString players
        = trouble.players > 0 ? u" (addresses: %1)"_s.arg(number(trouble.players)) : QString();
    return u"<h3>%1: %2%3 <code>%4</code></h3>\n"_s.arg(
               number(trouble.count), trouble.meaning().toHtmlEscaped(), players,
               trouble.identifier())
        + paragraphWithCode(trouble.remedy())
        + (trouble.cases.isEmpty() ? QString() : table.html());
}

QString troubles(const Report& report)
{
    if (report.troubles.isEmpty())
        return paragraph(u"None that logs show."_s);
    QString html;
    for (const Trouble& one : report.troubles)
        html += trouble(one);
    return html;
}

QString adoptions(const Report& report)
{
    QString html;
    for (const Adoption& one : report.adoption)
        html += adoption(one);
    return html.isEmpty() ? paragraph(u"Nobody has asked for a manifest."_s) : html;
}

QString quality(const Report& report)
{
    QString html;
    const QStringList lines = ReportText::quality(report);
    for (const QString& line : lines)
        html += paragraph(line.trimmed());
    return html;
}

QString period(const Report& report)
{
    if (report.load.requests == 0)
        return u"The logs tell of no request."_s;
    return u"From %1 to %2, from the server's access logs."_s.arg(
        ReportText::time(report.from), ReportText::time(report.to));
}

} // namespace

QByteArray toPage(const Report& report)
{
    registerTemplate();
    QFile file(u":/publisher/reportpage.html"_s);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("the page's template is missing");
    const QList<std::pair<QString, QString>> parts{
        { u"{{period}}"_s, period(report).toHtmlEscaped() },
        { u"{{figures}}"_s, figures(report) },
        { u"{{adoption}}"_s, adoptions(report) },
        { u"{{load}}"_s, load(report) },
        { u"{{trouble}}"_s, troubles(report) },
        { u"{{quality}}"_s, quality(report) },
    };
    const QString text = QString::fromUtf8(file.readAll());
    QString page;
    qsizetype done = 0;
    // In their order, so that nothing that is put in is taken for a place.
    for (const auto& [place, content] : parts) {
        const qsizetype begin = text.indexOf(place, done);
        page += text.mid(done, begin - done) + content;
        done = begin + place.size();
    }
    return (page + text.mid(done)).toUtf8();
}

} // namespace Publisher
