#include "bench/players/manifests.h"

#include <QFile>

namespace Players {

namespace {

Entries read(const QString& path)
{
    const PatchManifest manifest(path);
    auto list = std::make_shared<QList<PatchManifestEntry>>();
    for (qint64 n = 1; n <= manifest.entryCount(); ++n)
        list->append(manifest.entry(n));
    return list;
}

} // namespace

Entries Manifests::entries(const QByteArray& text)
{
    Entries& entries = known[text];
    if (!entries) {
        QFile file(folder.filePath(QString::number(known.size())));
        if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size())
            qFatal("%s: %s", qPrintable(file.fileName()), qPrintable(file.errorString()));
        file.close();
        entries = read(file.fileName());
    }
    return entries;
}

} // namespace Players
