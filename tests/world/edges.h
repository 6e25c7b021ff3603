#pragma once

#include "tests/world/serverprocess.h"

#include <QString>

#include <memory>

/// A cache in front of two origins, with the administrators' configuration, at port 443
/// of 127.0.0.1. It ends with the object.
class Edge {
public:
    /// At which ports of 127.0.0.1 an origin speaks TLS and plain http.
    struct Origin {
        quint16 port;
        quint16 plainPort;
    };

    /// `program` is "nginx", or "varnish" behind a TLS proxy.
    Edge(const QString& program, const Origin& first, const Origin& second);

    /// Starts with nothing in the cache.
    void startEmpty();
    /// With what it has kept on the disk.
    void restart();

private:
    void start();

    QString folder;
    quint16 cachePort;
    std::unique_ptr<ServerProcess> cache;
    std::unique_ptr<ServerProcess> tlsProxy;
};
