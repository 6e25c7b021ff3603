#include "publisher/build/manifestexchange.h"

#include "publisher/common/clock.h"
#include "publisher/common/filework.h"

#include <QFile>

namespace Publisher {

QString exchangeManifest(
    const ManifestExchange& exchange, Clock& clock,
    const std::function<QString(const QString& path)>& verify)
{
    const QString live = exchange.server + u'/' + ServerLayout::manifestName(exchange.kind);
    const QString fresh = FileWork::draftOf(live);
    QString error;
    if (exchange.isPublication)
        error = History(exchange.server, exchange.kind).record(exchange.text, exchange.note);
    if (error.isEmpty())
        error = FileWork::write(fresh, exchange.text);
    if (error.isEmpty() && exchange.flush)
        error = FileWork::flush(fresh);
    if (error.isEmpty())
        error = FileWork::setDate(fresh, clock.nextAfter(FileWork::dateOf(live)));
    // Read with its own date: files of one name, size and date are one file to the
    // settings layer.
    if (error.isEmpty())
        error = verify(fresh);
    if (error.isEmpty())
        error = FileWork::replace(fresh, live);
    if (!error.isEmpty())
        QFile::remove(fresh);
    else if (exchange.flush)
        error = FileWork::flushFileSystem(exchange.server);
    return error;
}

} // namespace Publisher
