#pragma once

#include "tests/faults/target.h"

/// nginx with HTTP/2, serving all five targets with today's content. The
/// launcher executable is newer than the player's only if it is the target.
class Http2Server {
public:
    explicit Http2Server(Target target);
    ~Http2Server();
    Http2Server(const Http2Server&) = delete;
    Http2Server& operator=(const Http2Server&) = delete;

    /// Returns when it accepts connections.
    void start();
    void stop();

    bool hasServedByHttp2(Target target) const;
    QString log() const;

private:
    bool running = false;
};
