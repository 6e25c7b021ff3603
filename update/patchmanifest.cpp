#include "update/patchmanifest.h"

#include <QRegularExpression>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

// Up to here the number is taken at its word, whatever the file holds.
constexpr qint64 plausibleEntryCount = 100'000;

QString key(qint64 n, QLatin1StringView suffix = {})
{
    return "file"_L1 + QString::number(n) + suffix;
}

} // namespace

PatchAction PatchManifestEntry::action() const
{
    if (save)
        return dirOnly ? PatchAction::FolderCreate : PatchAction::FileDownload;
    return dirOnly ? PatchAction::FolderRemove : PatchAction::FileRemove;
}

PatchManifest::PatchManifest(const QString& manifestPath, QChar nativeSeparator)
    : settings(manifestPath, QSettings::IniFormat)
    , separator(nativeSeparator)
{
}

qint64 PatchManifest::entryCount() const
{
    const qint64 count = settings.value("numberOfFiles", 0).toInt();
    if (count <= plausibleEntryCount)
        return count;
    // Kept until the number changes: it is asked for before every entry, and
    // looking at all keys each time would freeze the window after all.
    if (count != implausibleCount) {
        implausibleCount = count;
        lastEntryToWalk = std::min(count, std::max(plausibleEntryCount, lastNumberedEntry()));
    }
    return lastEntryToWalk;
}

PatchManifestEntry PatchManifest::entry(qint64 n) const
{
    return {
        .save = settings.value(key(n, "-save"_L1), true).toBool(),
        .dirOnly = settings.value(key(n, "-dirOnly"_L1), false).toBool(),
        .pathOffset
        = settings.value(key(n, "-pathOffset"_L1), QString("Data"_L1 + separator)).toString(),
        .urlOffset = settings.value(key(n, "-urlOffset"_L1)).toString(),
        .name = name(n),
        .hash = settings.value(key(n, "-hash"_L1)).toString(),
    };
}

QString PatchManifest::name(qint64 n) const
{
    return settings.value(key(n)).toString();
}

qint64 PatchManifest::entryOfKey(const QString& key)
{
    static const QRegularExpression numbered(u"^file([0-9]+)(-|$)"_s);
    return numbered.match(key).captured(1).toLongLong();
}

qint64 PatchManifest::lastNumberedEntry() const
{
    qint64 last = 0;
    const QStringList keys = settings.childKeys();
    for (const QString& candidate : keys)
        last = std::max(last, entryOfKey(candidate));
    return last;
}
