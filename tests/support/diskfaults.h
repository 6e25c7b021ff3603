#pragma once

#include <QFile>
#include <QString>

#include <memory>

namespace TestSupport {

/// Takes away the right to make anything in a folder. What is there already can
/// be removed all the same on Windows, where that is a right of its own.
class ReadOnlyFolder {
public:
    explicit ReadOnlyFolder(const QString& folder);
    ~ReadOnlyFolder();
    ReadOnlyFolder(const ReadOnlyFolder&) = delete;
    ReadOnlyFolder& operator=(const ReadOnlyFolder&) = delete;

private:
    struct Lock;
    std::unique_ptr<Lock> lock;
};

/// A file that cannot be removed: its folder must not change, or, on Windows,
/// another program has it open.
class UnremovableFile {
public:
    explicit UnremovableFile(const QString& path);
    ~UnremovableFile();
    UnremovableFile(const UnremovableFile&) = delete;
    UnremovableFile& operator=(const UnremovableFile&) = delete;

private:
    struct Lock;
    std::unique_ptr<Lock> lock;
};

/// A file that is there and cannot be read: without the right to, or, on Windows,
/// because another program has it for itself.
class UnreadableFile {
public:
    explicit UnreadableFile(const QString& path);
    ~UnreadableFile();
    UnreadableFile(const UnreadableFile&) = delete;
    UnreadableFile& operator=(const UnreadableFile&) = delete;

private:
    struct Lock;
    std::unique_ptr<Lock> lock;
};

/// Fills a folder's file system to the last block.
class FullDisk {
public:
    explicit FullDisk(const QString& folder);
    ~FullDisk();
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

private:
    QFile filler;
};

} // namespace TestSupport
