#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>

/// Takes away the right to write into a folder.
class ReadOnlyFolder {
public:
    explicit ReadOnlyFolder(const QString& folder);
    ~ReadOnlyFolder();
    ReadOnlyFolder(const ReadOnlyFolder&) = delete;
    ReadOnlyFolder& operator=(const ReadOnlyFolder&) = delete;

private:
    QString path;
    QFileDevice::Permissions permissions;
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

/// Holds the lock of a folder as a working updater does.
class LockHolder {
public:
    explicit LockHolder(const QString& folder);
    ~LockHolder();
    LockHolder(const LockHolder&) = delete;
    LockHolder& operator=(const LockHolder&) = delete;

private:
    int descriptor;
};

/// A program with good headers that no machine of this kind can start.
QByteArray foreignProgram();
