#pragma once

#include <QString>

namespace Publisher {

/// Something that is not published, and why.
struct Refusal {
    /// Stable, lower-case words with hyphens.
    QString id;
    /// As the admin knows it: relative to the source, or as given.
    QString path;
    /// One sentence or two, the way out included.
    QString reason;
};

} // namespace Publisher
