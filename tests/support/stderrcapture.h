#pragma once

#include <QByteArray>
#include <QTemporaryFile>

namespace TestSupport {

/// Collects what the process writes to its standard error stream while it
/// lives, instead of letting it through.
class StderrCapture {
public:
    StderrCapture();
    ~StderrCapture();
    StderrCapture(const StderrCapture&) = delete;
    StderrCapture& operator=(const StderrCapture&) = delete;

    QByteArray text() const;

private:
    QTemporaryFile file;
    int original;
};

} // namespace TestSupport
