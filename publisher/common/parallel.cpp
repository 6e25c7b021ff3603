#include "publisher/common/parallel.h"

#include <QThreadPool>

#include <algorithm>
#include <mutex>
#include <numeric>

namespace Publisher {

namespace {

/// Hands out the portions.
class Dispenser {
public:
    Dispenser(const QList<qsizetype>& numbers, const Parallel::Weight& weightOf, int threads)
        : order(numbers)
        , weight(weightOf)
        // Each thread gets several, or one would still be at work when all others are done.
        , most(std::clamp<qsizetype>(numbers.size() / threads / 8, 1, Parallel::portionCount))
    {
    }

    /// Positions from `first` up to, not including, `last`; empty at the end.
    std::pair<qsizetype, qsizetype> next()
    {
        const std::scoped_lock lock(taking);
        const qsizetype first = position;
        const qsizetype end = std::min(first + most, order.size());
        for (qint64 taken = 0; position < end && taken < Parallel::portionWeight; ++position)
            taken += weight(order.at(position));
        return { first, position };
    }

private:
    const QList<qsizetype>& order;
    const Parallel::Weight& weight;
    qsizetype most;
    std::mutex taking;
    qsizetype position = 0;
};

} // namespace

void Parallel::run(
    int threads, const QList<qsizetype>& order, const Weight& weight, const Work& work)
{
    Dispenser dispenser(order, weight, std::max(1, threads));
    const auto takePortions = [&](int thread) {
        for (auto [i, end] = dispenser.next(); i < end; std::tie(i, end) = dispenser.next()) {
            for (; i < end; ++i)
                work(order.at(i), thread);
        }
    };
    QThreadPool pool;
    pool.setMaxThreadCount(std::max(1, threads));
    for (int thread = 1; thread < threads; ++thread)
        pool.start([&takePortions, thread] { takePortions(thread); });
    takePortions(0);
    pool.waitForDone();
}

void Parallel::run(int threads, qsizetype count, const Work& work)
{
    QList<qsizetype> order(count);
    std::iota(order.begin(), order.end(), 0);
    run(
        threads, order, [](qsizetype) { return 0; }, work);
}

} // namespace Publisher
