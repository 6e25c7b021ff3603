#include "publisher/probe/recordcomparison.h"

#include "publisher/common/dates.h"
#include "publisher/probe/servedmanifest.h"

#include <QDir>
#include <QSet>

#include <utility>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

QString pathOf(const PatchFile& file)
{
    return QDir::cleanPath(ServerLayout::askedPath(file.kind, file.entry));
}

} // namespace

RecordComparison::RecordComparison(std::optional<Record> kept)
    : record(std::move(kept))
{
}

bool RecordComparison::hasRecord() const
{
    return record.has_value();
}

bool RecordComparison::knows(const QString& name) const
{
    return record && record->knows(name);
}

std::optional<Finding> RecordComparison::file(const QString& name, const ProbeAnswer& answer) const
{
    if (!record)
        return std::nullopt;
    if (!record->knows(name))
        return Finding{ FindingId::MissingInRecord, name, 0,
                        u"The server has it, and nobody has put it on record."_s };
    const RecordedFile due = record->files(name).value(name);
    if (due.sha256 == answer.sha256)
        return std::nullopt;
    const QString dated = Dates::shown(answer.lastModified);
    if (const auto former = record->former(name, answer.sha256))
        return Finding{ FindingId::FormerFileServed, name, 0,
                        u"The server sends the one that was published at %1, dated %2, and not "
                        "that of %3."_s.arg(
                            Dates::shown(former->published), dated, Dates::shown(due.published)) };
    return Finding{ FindingId::DiffersFromRecord, name, 0,
                    u"The server sends something else than what was published at %1: SHA-256 %2, "
                    "dated %3."_s.arg(
                        Dates::shown(due.published), QString::fromLatin1(answer.sha256), dated) };
}

std::optional<Finding>
RecordComparison::patchFile(const PatchFile& file, const ProbeAnswer& answer) const
{
    const QString manifest = file.manifest();
    if (!knows(manifest))
        return std::nullopt;
    const QString path = pathOf(file);
    const Record::Files files = record->files(manifest);
    const auto due = files.constFind(path);
    if (due == files.cend())
        return Finding{ FindingId::MissingInRecord, manifest, file.number,
                        u"%1 is not on record: players get what nobody has published."_s.arg(
                            path) };
    const bool hasHash = answer.toTheEnd && !answer.sha256.isEmpty();
    if (hasHash ? answer.sha256 == due->sha256 : answer.length < 0 || answer.length == due->size)
        return std::nullopt;
    return Finding{ FindingId::DiffersFromRecord, manifest, file.number,
                    u"%1 is something else than what was published at %2."_s.arg(
                        path, Dates::shown(due->published)) };
}

QList<Finding>
RecordComparison::dropped(const QString& manifest, const QList<PatchFile>& served) const
{
    if (!knows(manifest))
        return {};
    QSet<QString> named{ manifest };
    for (const PatchFile& file : served)
        named.insert(pathOf(file));
    QList<Finding> findings;
    const auto recorded = record->files(manifest);
    for (const RecordedFile& file : recorded) {
        if (!named.contains(file.path))
            findings.append({ FindingId::OnlyInRecord, manifest, 0,
                              u"It does not name %1, which was published at %2."_s.arg(
                                  file.path, Dates::shown(file.published)) });
    }
    return findings;
}

} // namespace Publisher
