#include "publisher/check/checkedmanifest.h"

namespace Publisher {

Finding CheckedManifest::finding(FindingId id, qint64 entry, const QString& text) const
{
    return { id, subject, entry, text };
}

} // namespace Publisher
