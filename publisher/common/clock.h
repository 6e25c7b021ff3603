#pragma once

#include <QDateTime>

namespace Publisher {

/// The time of day. Dates of publication must be newer than what players have,
/// to the second, so one may have to wait for the next second.
class Clock {
public:
    Clock() = default;
    Clock(const Clock&) = delete;
    Clock& operator=(const Clock&) = delete;
    virtual ~Clock() = default;

    virtual QDateTime now() const;
    /// Returns when `now()` has reached this time.
    virtual void waitUntil(const QDateTime& time);

    /// Whether a date lies further ahead than one waits for: then this clock is
    /// wrong, or the one was by which the date was set.
    bool isAhead(const QDateTime& date) const;
    /// The date of what takes the place of a file that is dated `replaced`, in
    /// whole seconds as HTTP tells them. Players ask with the date of their own
    /// copy, so this waits until the second has begun: a copy that was downloaded
    /// earlier in it would pass for up to date. `replaced` may be invalid; where it
    /// is ahead it does not count, since no copy of a player is as late.
    QDateTime nextAfter(const QDateTime& replaced);
};

} // namespace Publisher
