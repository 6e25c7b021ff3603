#pragma once

#include <QList>
#include <QString>

#include <utility>

namespace Publisher {

class LogBook;
struct Adoption;

/// What logs show to go wrong. The identifiers are stable, for scripts.
enum class TroubleId {
    LauncherLoop,
    FileAgain,
    DownloadBroken,
    OnlineAndBehind,
    ClockAhead,
    DatedAhead,
    ServerError,
    ClientError,
    FileUnnamed,
    NoLauncher,
};

/// One kind of trouble, with those whom and what it meets most.
struct Trouble {
    struct Case {
        /// Tag of a player, a path, or both.
        QString player = {};
        QString path = {};
        qint64 count = 0;
    };

    TroubleId id = {};
    /// Requests, or players where each counts once.
    qint64 count = 0;
    /// Whom it meets; 0 where that is not counted.
    qint64 players = 0;
    QList<Case> cases = {};

    /// Lower-case words with hyphens, such as "launcher-loop".
    QString identifier() const;
    /// What is so, as a sentence.
    QString meaning() const;
    QString remedy() const;
};

namespace Troubles {

/// Every identifier with its remedy, in the order of the enumeration.
QList<std::pair<QString, QString>> all();

/// What the logs show; kinds that do not occur are left out.
QList<Trouble> in(const LogBook& book);

/// As many full answers of one launcher are no accident: a start fetches it twice at
/// most.
inline constexpr quint32 answersOfALoop = 5;
/// A file that a player has fetched so often does not stay with him.
inline constexpr quint32 fetchesOfAFileAgain = 7;

} // namespace Troubles

} // namespace Publisher
