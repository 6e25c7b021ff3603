#pragma once

#include "tests/world/serverprocess.h"

#include <QByteArray>
#include <QString>

#include <memory>
#include <vector>

/// A store of three devices, each with a copy of every object: OpenStack Swift with its S3
/// interface, on the loopback. It keeps nothing beyond the object's life. Whatever fails
/// ends the process.
class ObjectStore {
public:
    /// Its clock goes by so many seconds more than this machine's.
    explicit ObjectStore(int secondsAhead = 0);
    ~ObjectStore();
    ObjectStore(const ObjectStore&) = delete;
    ObjectStore& operator=(const ObjectStore&) = delete;

    void start();
    /// From the next second on.
    void setClock(int secondsAhead);
    // The server of a device, counted from 0. The store goes on with two of them.
    void stopDevice(std::size_t number);
    void startDevice(std::size_t number);

    /// What rclone has to know to reach it as a remote of this name.
    static QByteArray section(const QString& name);
    /// Where everybody may read what lies in a bucket: "127.0.0.20:8080" and the path
    /// there, without a slash at its end.
    static QByteArray host();
    static QByteArray pathOf(const QString& bucket);

private:
    void useClock(ServerProcess& process);

    /// Directories of accounts and of containers.
    std::vector<std::unique_ptr<ServerProcess>> directories;
    std::vector<std::unique_ptr<ServerProcess>> devices;
    std::unique_ptr<ServerProcess> proxy;
};
