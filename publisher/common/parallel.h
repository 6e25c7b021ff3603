#pragma once

#include <QList>

#include <functional>

namespace Publisher {

/// Calls `work` once with every number of `order` and returns when all is done.
/// Threads take the next numbers in portions, in the order given: neighbours, which
/// lie in one folder as a rule, go to one thread, and threads seldom wait for each
/// other at a folder. With one thread everything happens in the caller's.
class Parallel {
public:
    /// The thread that works comes as a number from 0.
    using Work = std::function<void(qsizetype number, int thread)>;
    using Weight = std::function<qint64(qsizetype number)>;

    /// A portion is full with as much weight, or as many numbers.
    static constexpr qint64 portionWeight = qint64(1) << 20;
    static constexpr qsizetype portionCount = 512;

    static void
    run(int threads, const QList<qsizetype>& order, const Weight& weight, const Work& work);
    /// The numbers from 0 to `count` - 1, which weigh nothing.
    static void run(int threads, qsizetype count, const Work& work);
};

} // namespace Publisher
