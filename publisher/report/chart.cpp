#include "publisher/report/chart.h"

#include "publisher/report/reporttext.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace Publisher::Chart {

namespace {

constexpr double width = 720;
// Letters are larger on small screens.
constexpr double left = 72;
constexpr double right = 12;
constexpr double top = 12;
constexpr double plotHeight = 200;
constexpr double bottom = top + plotHeight;
constexpr double lineOfText = 28;
constexpr double hundred = 100;

QString coordinate(double value)
{
    return QString::number(value, 'f', 1);
}

/// Of a share of the width.
double across(double share)
{
    return left + share * (width - left - right);
}

double up(double share)
{
    return bottom - share * plotHeight;
}

QString text(double x, double y, const QString& anchor, const QString& content)
{
    return u"<text x=\"%1\" y=\"%2\" text-anchor=\"%3\">%4</text>\n"_s.arg(
        coordinate(x), coordinate(y), anchor, content.toHtmlEscaped());
}

QString line(double x1, double y1, double x2, double y2)
{
    return u"<line class=\"axis\" x1=\"%1\" y1=\"%2\" x2=\"%3\" y2=\"%4\"/>\n"_s.arg(
        coordinate(x1), coordinate(y1), coordinate(x2), coordinate(y2));
}

QString picture(const QString& title, double height, const QString& content)
{
    return u"<svg role=\"img\" viewBox=\"0 0 %1 %2\" aria-label=\"%3\">\n<title>%3</title>\n%4</svg>\n"_s
        .arg(coordinate(width), coordinate(height), title.toHtmlEscaped(), content);
}

QString polyline(const Curve& curve, qsizetype number, qint64 longest)
{
    QString points = coordinate(across(0)) + u',' + coordinate(up(0));
    double height = up(0);
    for (const auto& [seconds, players] : curve.points) {
        const double x = across(static_cast<double>(seconds) / static_cast<double>(longest));
        points += u' ' + coordinate(x) + u',' + coordinate(height);
        height = up(static_cast<double>(players) / static_cast<double>(curve.players));
        points += u' ' + coordinate(x) + u',' + coordinate(height);
    }
    return u"<polyline class=\"curve c%1\" points=\"%2\"/>\n"_s.arg(number).arg(points);
}

/// Its line, and beside it what it is called.
QString legend(const Curve& curve, qsizetype number)
{
    constexpr double sample = 40;
    const double y = bottom + lineOfText * static_cast<double>(number + 2);
    return u"<line class=\"curve c%1\" x1=\"%2\" y1=\"%3\" x2=\"%4\" y2=\"%3\"/>\n"_s.arg(number)
               .arg(coordinate(left), coordinate(y - 4), coordinate(left + sample))
        + text(left + sample + 8, y, u"start"_s, curve.name);
}

/// Two of them stand side by side on a phone.
QString label(qint64 time)
{
    return ReportText::time(time).chopped(QStringView(u" UTC").size());
}

QString bars(const Load& load, qint64 most)
{
    QString content;
    const double barWidth = (width - left - right) / static_cast<double>(load.steps.size());
    for (qsizetype i = 0; i < load.steps.size(); ++i) {
        const double share
            = static_cast<double>(load.steps.at(i).requests) / static_cast<double>(most);
        content += u"<rect class=\"bar\" x=\"%1\" y=\"%2\" width=\"%3\" height=\"%4\"/>\n"_s.arg(
            coordinate(left + barWidth * static_cast<double>(i)), coordinate(up(share)),
            coordinate(std::max(barWidth - 1, 0.5)), coordinate(share * plotHeight));
    }
    return content;
}

} // namespace

QString adoption(const QString& title, const QList<Curve>& curves)
{
    constexpr double half = 0.5;
    qint64 longest = 1;
    for (const Curve& curve : curves)
        longest = std::max(longest, curve.points.constLast().first);
    QString content;
    for (const double share : { 0.0, half, 1.0 })
        content += line(left, up(share), width - right, up(share))
            + text(left - 6, up(share) + 4, u"end"_s, u"%1 %"_s.arg(share * hundred));
    for (qsizetype i = 0; i < curves.size(); ++i)
        content += polyline(curves.at(i), i, longest) + legend(curves.at(i), i);
    content += text(across(0), bottom + lineOfText, u"start"_s, u"published"_s)
        + text(across(1), bottom + lineOfText, u"end"_s, ReportText::duration(longest));
    return picture(
        title, bottom + lineOfText * static_cast<double>(curves.size() + 1) + 12, content);
}

QString load(const QString& title, const Load& load)
{
    qint64 most = 1;
    for (const Load::Step& step : load.steps)
        most = std::max(most, step.requests);
    const qint64 end = load.steps.constLast().time + load.secondsOfAStep;
    const QString content = bars(load, most) + line(left, bottom, width - right, bottom)
        + text(left - 6, up(1) + 8, u"end"_s, ReportText::number(most))
        + text(left - 6, bottom, u"end"_s, u"0"_s)
        + text(across(0), bottom + lineOfText, u"start"_s, label(load.steps.first().time))
        + text(across(1), bottom + lineOfText, u"end"_s, label(end));
    return picture(title, bottom + lineOfText + 12, content);
}

} // namespace Publisher::Chart
