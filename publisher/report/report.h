#pragma once

#include "publisher/common/problem.h"
#include "publisher/report/logline.h"
#include "publisher/report/trouble.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <array>
#include <map>
#include <optional>

namespace Publisher {

struct ReportRequest {
    /// Files, or "-" for standard input.
    QStringList logs;
    /// What the web server serves, with the history of it; empty for none.
    QString tree;
    /// Addresses of the admin's own machines, whose requests do not count.
    QStringList own;
};

/// Times are seconds since 1970 throughout.
struct PublicationAdoption {
    /// In the history; 0 where no tree tells it.
    int number = 0;
    /// Whether it is what some get before all others.
    bool isNext = false;
    QString message = {};
    /// When it was dated, or first fetched where logs do not tell.
    qint64 time = 0;
    bool isDated = false;
    /// Of the manifest or launcher, as far as it is known.
    qint64 size = 0;
    /// Whose latest it is, and when the last of them was online.
    qint64 players = 0;
    qint64 lastOnline = 0;
    /// Until `Adoption::shares` of the players had it or a later one; none where that
    /// has not come, or the logs begin later.
    std::array<std::optional<qint64>, 3> seconds = {};
    /// How many had it or a later one, so many seconds after its time.
    QList<std::pair<qint64, qint64>> curve = {};
};

/// Of one manifest, or of the launcher.
struct Adoption {
    static constexpr std::array<int, 3> shares{ 50, 90, 99 }; // percent

    /// "live", "test" or "launcher".
    QString track;
    /// Who has asked for it.
    qint64 players = 0;
    /// Those of whom the logs do not tell which one they have.
    qint64 unknown = 0;
    /// Who has not the latest.
    qint64 behind = 0;
    /// The oldest first.
    QList<PublicationAdoption> publications = {};
};

struct LoadPeak {
    qint64 value = 0;
    /// When the minute began.
    qint64 time = 0;
};

struct Load {
    qint64 requests = 0;
    qint64 bytes = 0;
    qint64 connections = 0;
    /// In a minute.
    LoadPeak mostRequests = {};
    LoadPeak mostBytes = {};
    LoadPeak mostConnections = {};
    /// Of downloads with a duration: how many, and bytes a second of the slowest tenth at
    /// most, and of the slower half.
    qint64 timedDownloads = 0;
    double slowestTenth = 0;
    double slowerHalf = 0;
    struct Step {
        qint64 time = 0;
        qint64 requests = 0;
        qint64 bytes = 0;
        qint64 connections = 0;
    };
    /// As many steps as a picture has room for, each of `secondsOfAStep`.
    QList<Step> steps = {};
    qint64 secondsOfAStep = 60;
    /// The 24 hours from the latest publication on.
    std::optional<Step> patchDay = {};
    qint64 playersOfPatchDay = 0;
    /// The same by the estimate for the tree, for as many players; where there is one.
    std::optional<Step> estimated = {};
    std::map<int, qint64> statuses = {};
};

/// How the logs themselves were.
struct LogQuality {
    struct WrongLine {
        QString log;
        qint64 number = 0;
        LineFault fault = LineFault::None;
    };

    qint64 lines = 0;
    qint64 wrong = 0;
    /// The first ones.
    QList<WrongLine> wrongLines;
    /// JSON that tells of no request.
    qint64 otherLines = 0;
    /// Logs whose last line has no end.
    qint64 unfinished = 0;
    qint64 leftOut = 0;
    /// Share of the requests that tell the date of the player's copy, how long they took
    /// and whether they opened a connection.
    double withDates = 0;
    double withDuration = 0;
    double withConnection = 0;
    /// Whether counts by path or player are a little low, for want of room.
    bool isExact = true;
};

struct Report {
    qint64 from = 0;
    qint64 to = 0;
    /// Addresses with a launcher, in all and by day.
    qint64 players = 0;
    QList<std::pair<qint64, qint64>> playersByDay;
    /// Other addresses.
    qint64 strangers = 0;
    QList<Adoption> adoption;
    QList<Trouble> troubles;
    Load load;
    LogQuality quality;
};

/// Reads the logs to their ends and works it out.
[[nodiscard]] Problem makeReport(const ReportRequest& request, Report& report);

} // namespace Publisher
