#pragma once

#include "tests/faults/target.h"
#include "tests/support/httpsserver.h"

#include <QDateTime>
#include <QStringList>

#include <functional>

class MainWindowUnderTest;

/// A player who was up to date yesterday, with one client, and a community that
/// has published everything anew since. A start of the launcher is the real main
/// window with its two update runs; one of the five targets is hit by a fault.
///
/// The launcher executable is newer on the server only where it is the target:
/// otherwise every start would hand over to the updater.
class FaultyEvening {
public:
    explicit FaultyEvening(Target hit);
    FaultyEvening(const FaultyEvening&) = delete;
    FaultyEvening& operator=(const FaultyEvening&) = delete;

    /// What the server answers for the target in the faulty start; today's
    /// content by default.
    void answerTarget(const TestSupport::HttpAnswer& answer);
    void answerTarget(const TestSupport::HttpsServer::Handler& handler);
    /// Runs when the target is asked for, before the first answer.
    void whenTargetIsAskedFor(const std::function<void()>& action);
    /// Runs when everything before the target has been asked for and nothing of
    /// it: from then on `server` takes no new connections, and what `action`
    /// puts in its place meets the target and all that comes later.
    void replaceServerBeforeTarget(const std::function<void()>& action);
    /// Runs when the faulty start is over, to put things right.
    void afterwards(const std::function<void()>& action);

    /// The network error that each download of the target must log, by the name
    /// of its enumerator; none by default. After a redirect the log has the
    /// address that it led to.
    void expectError(const QString& name, const QString& url = QString());
    /// The downloads of later targets may fail as well.
    void laterTargetsMayFail();
    /// The network library has a word of its own to say, in lines that begin like
    /// this. Its threads may do so late, so it holds for all later evenings, too.
    static void toolkitWarns(const QString& beginning);
    /// The client need not hold what the cache holds.
    void clientMayDiffer();
    /// The outcome is that of the patch file in the client, not in the cache.
    void judgeByClient();
    /// Tells whether the target is as it was, where that was no ordinary file.
    void keptMeans(const std::function<bool()>& condition);

    /// A start with the fault, then one with everything in order, and if that
    /// has not brought today's content one after everything was published anew.
    /// Says in words what became of the target, or what went wrong.
    QString play();
    /// How often the toolkit has warned of a write into this file, which did not
    /// open, in the start with the fault.
    qsizetype writesIntoNothing(const QString& file) const;

    TestSupport::HttpsServer server;

private:
    enum class State { Kept, Whole, AsSent, Gone };

    TestSupport::HttpsServer::Handler
    holding(Target previous, const TestSupport::HttpsServer::Handler& handler);
    void replaceServer();
    void setFault(const QDateTime& date);

    State start(const QDateTime& date, bool faulty);
    State state() const;
    void check(const MainWindowUnderTest& window, bool faulty);
    void checkButtons(const MainWindowUnderTest& window);
    void checkLog(const QStringList& log, bool faulty);
    void checkFiles();

    Target target;
    TestSupport::HttpsServer::Handler faultyAnswer;
    std::function<void()> onRequest;
    std::function<void()> onReplacement;
    std::function<void()> onEnd;
    std::function<bool()> isKept;
    QString error;
    QString errorUrl;
    bool laterMayFail = false;
    bool clientIsChecked = true;
    QString judged;
    int asked = 0;
    QStringList unopened;
    QStringList problems;
};
