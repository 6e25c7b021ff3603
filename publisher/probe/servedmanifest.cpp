#include "publisher/probe/servedmanifest.h"

#include "publisher/check/checkentries.h"
#include "publisher/check/checkreading.h"
#include "update/patchlayout.h"

#include <QTemporaryFile>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

QList<PatchFile> patchFiles(Kind kind, const QString& manifest, const ManifestContent& content)
{
    QList<PatchFile> files;
    for (qint64 n = 1; n <= content.count(); ++n) {
        const PatchManifestEntry& entry = content.entry(n);
        if (entry.action() == PatchAction::FileDownload && !entry.name.isEmpty()
            && !entry.hash.isEmpty())
            files.append({ kind, n, entry, manifest });
    }
    return files;
}

} // namespace

QString PatchFile::manifest() const
{
    return ownManifest.isEmpty() ? ServerLayout::manifestName(kind) : ownManifest;
}

QUrl PatchFile::address(const QUrl& baseUrl) const
{
    return PatchLayout::patchFile(baseUrl.toString(), ServerLayout::word(kind), entry);
}

ServedManifest ServedManifest::read(Kind kind, const QString& name, const QByteArray& text)
{
    ServedManifest manifest;
    // The launcher's settings layer reads from files only.
    QTemporaryFile file;
    if (!file.open() || file.write(text) != text.size() || !file.flush()) {
        manifest.error = u"%1 cannot be looked at: %2. Make room in the folder for temporary "
                         "files, or give yourself the right to it, or name another one in "
                         "TMPDIR"_s.arg(name, file.errorString());
        return manifest;
    }
    const CheckedManifest checked{ name, file.fileName(), kind,
                                   ManifestContent::read(file.fileName(), u'\\', 0) };
    manifest.findings
        = CheckReading::findings(file.fileName(), name) + CheckEntries::findings(checked, {});
    manifest.files = patchFiles(kind, name, checked.content);
    return manifest;
}

} // namespace Publisher
