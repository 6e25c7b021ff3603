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

/// The error of a report that several steps share: that of the first which fails.
class FirstProblem {
public:
    explicit FirstProblem(QString& reportedError)
        : error(reportedError)
    {
    }

    bool succeeded() const
    {
        return error.isEmpty();
    }

    /// Takes in how a step has ended. Returns whether that one went well.
    bool attempt(const Problem& problem) const
    {
        if (succeeded() && problem)
            error = *problem;
        return !problem;
    }

private:
    QString& error;
};

} // namespace Publisher
