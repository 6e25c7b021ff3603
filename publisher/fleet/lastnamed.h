#pragma once

#include "publisher/common/problem.h"

#include <QDateTime>
#include <QHash>
#include <QSet>
#include <QString>

namespace Publisher {

/// When each patch file of the fleet was last named by a manifest, or first seen where
/// none has named it. Lies in the tree, beside the history, a line for each file that is
/// on some server; without it everything has just been seen.
class LastNamed {
public:
    explicit LastNamed(const QString& tree);

    /// Takes down what is on some server and what of that is named.
    void note(const QSet<QString>& present, const QSet<QString>& named, const QDateTime& now);
    [[nodiscard]] Problem store() const;

    /// What none has named for so many days.
    QSet<QString> unnamedFor(int days, const QDateTime& now) const;

private:
    QString path;
    QHash<QString, QDateTime> dates;
};

} // namespace Publisher
