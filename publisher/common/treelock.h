#pragma once

#include "publisher/common/problem.h"

#include <QString>

#include <memory>

#ifdef Q_OS_WIN
class QLockFile;
#endif

namespace Publisher {

/// Keeps other publishers away from a server folder, or from that of a record. The
/// system lets go of it when the process ends, however it ends.
class TreeLock {
public:
    /// What is done about another process, or another object, that holds the folder.
    enum class IfHeld { GiveUp, Wait };

    explicit TreeLock(const QString& folder, IfHeld ifHeld = IfHeld::GiveUp);
    TreeLock(const TreeLock&) = delete;
    TreeLock& operator=(const TreeLock&) = delete;
    ~TreeLock();

    /// Why the folder is not held: another one holds it, or there are no locks to be
    /// had. Nothing when it is.
    const Problem& problem() const;

private:
    Problem trouble;
#ifdef Q_OS_WIN
    std::unique_ptr<QLockFile> lock;
#else
    int handle = -1;
#endif
};

} // namespace Publisher
