#pragma once

#include <QByteArray>

/// A terminal of the process's own, which is its standard error stream for as long
/// as this lives. Ends the process where there is none to be had. Has room for a few
/// kilobytes until they are taken.
class Terminal {
public:
    Terminal();
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    /// What has been written since the last call.
    QByteArray takeText() const;

private:
    int original;
    int screen;
};
