#include "tests/faults/faultyevening.h"

#include "core/settingshandler.h"
#include "tests/faults/logcheck.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/mainwindowundertest.h"
#include "tests/support/realmsini.h"

#include <QFileInfo>
#include <QLabel>
#include <QPushButton>
#include <QRegularExpression>
#include <QTimer>

#include <utility>

using namespace TestSupport;
using ApplicationFolder::path;

namespace {

QByteArray contentOf(const QString& file)
{
    // Anything else than a regular file might block for ever.
    return QFileInfo(file).isFile() ? readFile(file) : QByteArray();
}

QString& toolkitWarning()
{
    static QString beginning;
    return beginning;
}

} // namespace

FaultyEvening::FaultyEvening(Target hit)
    : target(hit)
    , errorUrl(Targets::url(hit))
    , judged(Targets::localPath(hit))
{
    ApplicationFolder::clear();
    layOutPlayer(path(), ownClientFolder());
    // Again, with a date that the settings layer has not met yet.
    writeRealmsIni(readFile(realmsIniPath()));
}

void FaultyEvening::answerTarget(const HttpAnswer& answer)
{
    answerTarget([answer](const HttpRequest&) { return answer; });
}

void FaultyEvening::answerTarget(const HttpsServer::Handler& handler)
{
    faultyAnswer = handler;
}

void FaultyEvening::whenTargetIsAskedFor(const std::function<void()>& action)
{
    onRequest = action;
}

void FaultyEvening::replaceServerBeforeTarget(const std::function<void()>& action)
{
    onReplacement = action;
}

void FaultyEvening::afterwards(const std::function<void()>& action)
{
    onEnd = action;
}

void FaultyEvening::expectError(const QString& name, const QString& url)
{
    error = name;
    if (!url.isEmpty())
        errorUrl = url;
}

void FaultyEvening::laterTargetsMayFail()
{
    laterMayFail = true;
}

void FaultyEvening::toolkitWarns(const QString& beginning)
{
    toolkitWarning() = beginning;
}

void FaultyEvening::clientMayDiffer()
{
    clientIsChecked = false;
}

void FaultyEvening::judgeByClient()
{
    judged = Targets::installedPatchFile(ownClientFolder());
    clientIsChecked = false;
}

void FaultyEvening::keptMeans(const std::function<bool()>& condition)
{
    isKept = condition;
}

QString FaultyEvening::play()
{
    static const QStringList words{ "kept", "whole", "as sent", "gone" };
    const State first = start(Targets::thisMorning(), true);
    QString outcome = words.at(static_cast<int>(first));
    if (first != State::Whole && problems.isEmpty()) {
        if (start(Targets::thisMorning(), false) == State::Whole)
            outcome += ", then whole";
        else if (start(QDateTime::currentDateTimeUtc().addDays(1), false) == State::Whole)
            outcome += ", whole when published anew";
        else
            outcome += " for good";
    }
    return problems.isEmpty() ? outcome : problems.join('\n');
}

qsizetype FaultyEvening::writesIntoNothing(const QString& file) const
{
    return unopened.count("warning: QIODevice::write (QFile, \"" + file + "\"): device not open");
}

/// Holds both runs' requests back until they are all there, then has the server
/// replaced.
HttpsServer::Handler FaultyEvening::holding(Target previous, const HttpsServer::Handler& handler)
{
    return [this, previous, handler](const HttpRequest& request) {
        if (++asked == Targets::requestsPerStart(previous)) {
            replaceServer();
            QTimer::singleShot(0, &server, &HttpsServer::release);
        }
        return HttpAnswer::held(handler(request));
    };
}

void FaultyEvening::replaceServer()
{
    server.stopListening();
    onReplacement();
}

void FaultyEvening::setFault(const QDateTime& date)
{
    const auto answer = faultyAnswer ? faultyAnswer : Targets::published(target, date);
    server.answer(Targets::requestPath(target), [this, answer](const HttpRequest& request) {
        if (onRequest)
            std::exchange(onRequest, nullptr)();
        return answer(request);
    });
    if (!onReplacement)
        return;
    if (target == Target::InfoText) {
        replaceServer();
        return;
    }
    const Target previous = Targets::before(target);
    server.answer(
        Targets::requestPath(previous),
        holding(previous, Targets::publishedFor(target, previous, date)));
}

FaultyEvening::State FaultyEvening::start(const QDateTime& date, bool faulty)
{
    server.shutDown();
    Targets::publishAllFor(target, server, date);
    server.listen();
    if (faulty)
        setFault(date);
    {
        const MainWindowUnderTest window;
        if (window.settle(2))
            check(window, faulty);
        else
            problems.append("the update runs do not end");
    }
    checkFiles();
    const State reached = state();
    if (faulty && onEnd)
        onEnd();
    return reached;
}

FaultyEvening::State FaultyEvening::state() const
{
    const QByteArray content = contentOf(judged);
    if (content == Targets::today(target))
        return State::Whole;
    if (isKept && isKept())
        return State::Kept;
    if (content == Targets::yesterday(target)
        && content.isNull() == Targets::yesterday(target).isNull())
        return State::Kept;
    return content.isNull() ? State::Gone : State::AsSent;
}

void FaultyEvening::check(const MainWindowUnderTest& window, bool faulty)
{
    checkButtons(window);
    checkLog(window.log.lines(), faulty);
    problems += LogCheck::nothingBut(window.log.linesOfOtherThreads(), toolkitWarning());
}

void FaultyEvening::checkButtons(const MainWindowUnderTest& window)
{
    for (const QString name : { "StartWoW", "AddClient", "EditClient", "RemoveClient" }) {
        if (!window.button(name)->isEnabled())
            problems.append("disabled: " + name);
    }
    if (window.button("StartWoW")->isHidden() != (SettingsHandler::getClientCount() == 0))
        problems.append("the start button is not as the realm list wants it");
    if (!window.downloadLabel()->isHidden())
        problems.append("a download is still shown");
}

void FaultyEvening::checkLog(const QStringList& log, bool faulty)
{
    problems += LogCheck::wholeChain(log, path());
    static const QRegularExpression unopenedFile(
        "^warning: QIODevice::write \\(QFile, \".*-new\"\\): device not open$");
    const QStringList warnings = log.filter(unopenedFile);
    if (faulty)
        unopened = warnings;
    QStringList rest = log;
    rest.removeIf([&warnings](const QString& line) { return warnings.contains(line); });
    problems += LogCheck::onlyDownloadWarnings(rest);
    problems += LogCheck::failures(
        log, errorUrl, faulty ? error : QString(), Targets::requestsPerStart(target));
    if (!faulty || !laterMayFail)
        problems += LogCheck::noOtherFailures(log, faulty ? errorUrl : QString());
}

/// What was not hit is of yesterday or of today, and the client has what the
/// cache has.
void FaultyEvening::checkFiles()
{
    for (const Target each : Targets::all()) {
        const QByteArray content = contentOf(Targets::localPath(each));
        if (each != target && content != Targets::yesterday(each)
            && content != Targets::today(each))
            problems.append("neither yesterday's nor today's: " + Targets::localPath(each));
    }
    const QByteArray cached = contentOf(Targets::localPath(Target::PatchFile));
    if (clientIsChecked && contentOf(Targets::installedPatchFile(ownClientFolder())) != cached)
        problems.append("the client does not have what the cache has");
}
