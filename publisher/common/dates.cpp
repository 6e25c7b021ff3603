#include "publisher/common/dates.h"

#include "publisher/common/clock.h"
#include "publisher/common/filework.h"

#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

QString contradiction(const QString& path, const Clock& clock)
{
    return u"It is dated %1, and this machine's clock says %2: until then every start fetches it "
           "anew."_s.arg(Dates::shown(FileWork::dateOf(path)), Dates::shown(clock.now()));
}

} // namespace

namespace Dates {

QList<Finding> ahead(const QString& path, const Clock& clock)
{
    if (!clock.isAhead(FileWork::dateOf(path)))
        return {};
    return {
        { FindingId::DateAhead, QFileInfo(path).fileName(), 0, contradiction(path, clock),
          u"If the clock is wrong, set it right and run the same command again. If it is right, "
          "the last publication had a wrong one: --renew dates the file now."_s }
    };
}

QStringList noteOn(const QString& path, const Clock& clock)
{
    if (!clock.isAhead(FileWork::dateOf(path)))
        return {};
    return {
        QFileInfo(path).fileName() + u": "_s + contradiction(path, clock)
        + u" If this clock is right, `halden-publish build-launcher --renew` dates it now."_s
    };
}

QString shown(const QDateTime& date)
{
    return date.toUTC().toString(u"yyyy-MM-dd HH:mm:ss"_s) + u" UTC"_s;
}

} // namespace Dates

} // namespace Publisher
