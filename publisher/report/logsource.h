#pragma once

#include "publisher/common/problem.h"

#include <QString>

#include <memory>
#include <span>

namespace Publisher {

/// The content of a log: plain, or unpacked where it begins as gzip or Zstandard
/// files do, whatever its name is.
class LogSource {
public:
    virtual ~LogSource() = default;
    LogSource() = default;
    LogSource(const LogSource&) = delete;
    LogSource& operator=(const LogSource&) = delete;

    /// Fills the buffer as far as it can and returns with how much. 0 is the end, or
    /// what `problem` tells.
    virtual std::size_t read(std::span<char> buffer, Problem& problem) = 0;

    /// A file, or standard input for "-". None where `problem` says why not.
    [[nodiscard]] static std::unique_ptr<LogSource> open(const QString& path, Problem& problem);
};

} // namespace Publisher
