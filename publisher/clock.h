#pragma once

#include <QDateTime>

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

    /// Now, in whole seconds as HTTP tells them, but newer than `replaced` even
    /// where this machine's clock is behind. `replaced` may be invalid.
    QDateTime newerThan(const QDateTime& replaced) const;
    /// The same for what players ask for with the date of their own copy: waits
    /// until the next second has begun, since a copy that was downloaded earlier
    /// in the present one would pass for up to date.
    QDateTime nextAfter(const QDateTime& replaced);
};
