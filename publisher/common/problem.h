#pragma once

#include <QString>

#include <optional>

namespace Publisher {

/// Nothing after success; otherwise a sentence that tells what has failed, why in
/// the system's words, and what to do.
using Problem = std::optional<QString>;

/// Takes the steps one after the other up to the first that fails.
template <typename... Steps> [[nodiscard]] Problem inOrder(const Steps&... steps)
{
    Problem problem;
    (void)(... || (problem = steps()).has_value());
    return problem;
}

} // namespace Publisher
