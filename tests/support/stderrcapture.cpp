#include "tests/support/stderrcapture.h"

#include "tests/support/applicationfolder.h"

#include <cstdio>
#include <unistd.h>

namespace TestSupport {

StderrCapture::StderrCapture()
    : original(dup(STDERR_FILENO))
{
    std::fflush(stderr);
    if (!file.open() || dup2(file.handle(), STDERR_FILENO) < 0)
        qFatal("cannot capture the standard error stream");
}

StderrCapture::~StderrCapture()
{
    std::fflush(stderr);
    dup2(original, STDERR_FILENO);
    close(original);
}

QByteArray StderrCapture::text() const
{
    std::fflush(stderr);
    return readFile(file.fileName());
}

} // namespace TestSupport
