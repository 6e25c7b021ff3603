#pragma once

#include <QString>

#include <memory>

#ifdef Q_OS_WIN
class QLockFile;
#endif

/// Keeps other publishers away from a server folder. The system lets go of it
/// when the process ends, however it ends.
class TreeLock {
public:
    explicit TreeLock(const QString& folder);
    TreeLock(const TreeLock&) = delete;
    TreeLock& operator=(const TreeLock&) = delete;
    ~TreeLock();

    /// False while another process, or another object, holds the folder.
    bool isHeld() const;

private:
#ifdef Q_OS_WIN
    std::unique_ptr<QLockFile> lock;
#else
    int handle = -1;
#endif
};
