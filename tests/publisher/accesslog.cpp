#include "tests/publisher/accesslog.h"

#include "tests/support/applicationfolder.h"
#include "tests/support/timezone.h"

#include <QLocale>

using namespace TestSupport;

namespace {

QByteArray httpDate(const std::optional<qint64>& second)
{
    if (!second)
        return "-";
    return QLocale::c()
        .toString(AccessLog::at(*second), "ddd, dd MMM yyyy hh:mm:ss 'GMT'")
        .toLatin1();
}

} // namespace

QDateTime AccessLog::at(qint64 seconds)
{
    return utc({ 2026, 11, 2 }, { 12, 0 }).addSecs(seconds);
}

AccessLog& AccessLog::add(const Request& request)
{
    QByteArray line = "192.0.2." + QByteArray::number(request.player) + " - - ["
        + QLocale::c().toString(at(request.second), "dd/MMM/yyyy:hh:mm:ss").toLatin1()
        + " +0000] \"GET " + request.target.toUtf8() + " HTTP/1.1\" "
        + QByteArray::number(request.status) + ' ' + QByteArray::number(request.bytes) + " \"-\" \""
        + request.agent.toUtf8() + '"';
    if (request.copy || request.file)
        line += " \"" + httpDate(request.copy) + "\" \"" + httpDate(request.file)
            + "\" seconds=" + QByteArray::number(request.duration) + " request=1";
    return addText(line + '\n');
}

AccessLog& AccessLog::addText(const QByteArray& text)
{
    all.append(text);
    return *this;
}

QByteArray AccessLog::text() const
{
    return all.join();
}

QString AccessLog::write(const QString& name) const
{
    QString path = ApplicationFolder::path(name);
    writeFile(path, text());
    return path;
}

const QList<QByteArray>& AccessLog::lines() const
{
    return all;
}
