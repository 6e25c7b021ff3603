#include "updater/exchange.h"

#include "updater/filenames.h"
#include "updater/limits.h"

#include <array>
#include <string_view>
#include <tuple>
#include <vector>

namespace Updater {

namespace {

std::vector<std::byte> nextBlock(InputFile& file)
{
    std::vector<std::byte> block(programHeadSize);
    block.resize(file.read(block));
    return block;
}

/// What is wrong with the file, if it can be read; empty for a good one.
[[nodiscard]] Problem inspect(const Path& path, std::string& fault)
{
    InputFile file(path);
    if (file.problem())
        return file.problem();
    if (!file.isRegular()) {
        fault = "is no regular file";
        return {};
    }
    const std::vector<std::byte> head = nextBlock(file);
    if (const char* found = findFault(nativeProgram, head, file.size()))
        fault = found;
    return file.problem();
}

[[nodiscard]] Problem compare(const Path& onePath, const Path& otherPath, bool& same)
{
    InputFile one(onePath);
    InputFile other(otherPath);
    same = one.size() == other.size();
    bool atEnd = false;
    while (same && !atEnd && !one.problem() && !other.problem()) {
        const std::vector<std::byte> block = nextBlock(one);
        same = block == nextBlock(other);
        atEnd = block.empty();
    }
    return one.problem() ? one.problem() : other.problem();
}

// What a run can come to, as far as the next one wants to know.
constexpr std::string_view startedNewer = "started the launcher";
constexpr std::string_view startedAgain = "started the launcher again";
constexpr std::string_view wasInPlace = "Halden-Launcher.tmp was the launcher in place";
constexpr std::string_view refused = "refused ";
constexpr std::string_view couldNotReplace = "could not replace the launcher of process ";
constexpr std::string_view wentBack = "went back to the launcher in place, after process ";
constexpr std::array outcomes{ startedNewer, wasInPlace, refused, couldNotReplace, wentBack };

/// Marks a kept launcher that cannot be removed and is of no more use.
constexpr std::uint32_t spent = 0;

} // namespace

Exchange::Exchange(const Path& folder, const Log& diary, std::uint32_t id)
    : log(diary)
    , launcher(fileIn(folder, launcherName))
    , waiting(fileIn(folder, waitingName))
    , kept(fileIn(folder, keptName))
    , unfinished(fileIn(folder, unfinishedName))
    , launcherId(id)
{
}

ExitCode Exchange::run()
{
    if (const Problem problem = insist([this] { return attempt(); }))
        log.write("gave up: " + *problem);
    const ExitCode code = finish();
    return code == ExitCode::CouldNotReplace ? concede() : code;
}

/// Repeats what fails, since a scanner or a process that is slow to end lets go
/// of a file sooner or later.
Problem Exchange::insist(const std::function<Problem()>& attempt) const
{
    Problem problem = attempt();
    Problem known;
    for (const auto duration : limits.pauses) {
        if (!problem)
            break;
        if (problem != known)
            log.write("trying again: " + *problem);
        known = problem;
        pause(duration);
        problem = attempt();
    }
    return problem;
}

Problem Exchange::attempt()
{
    verdict = ExitCode::CouldNotReplace;
    if (Problem problem = restoreMissingLauncher())
        return problem;
    if (Problem problem = findUntried())
        return problem;
    if (isThere(waiting))
        return attemptWithWaitingFile();
    resumeEarlierRun();
    return {};
}

/// A kept launcher that differs from the one in place tells of a run that ended
/// before it could start the new one.
Problem Exchange::findUntried()
{
    untried = false;
    if (!isThere(kept) || markOn(kept) == spent)
        return {};
    const InputFile file(kept);
    if (file.problem() || !file.isRegular())
        return file.problem();
    bool same = false;
    Problem problem = compare(kept, launcher, same);
    untried = !problem && !same;
    return problem;
}

Problem Exchange::attemptWithWaitingFile()
{
    std::string fault;
    if (Problem problem = inspect(waiting, fault))
        return problem;
    if (!fault.empty())
        return refuse(fault);
    bool same = false;
    if (isThere(launcher)) {
        if (Problem problem = compare(waiting, launcher, same))
            return problem;
    }
    return same ? dropWaitingCopy() : replaceLauncher();
}

/// A launcher that stayed away would find the file again, hand over again and
/// never get to its window.
Problem Exchange::refuse(const std::string& fault)
{
    verdict = ExitCode::RefusedFile;
    const std::string refusal = std::string(refused) + waitingName + ", which " + fault;
    if (const Problem problem = removeFile(waiting))
        return refusal + ": " + *problem;
    log.write(refusal);
    return {};
}

/// A server that goes by dates keeps the same program back from now on. Where
/// the date cannot be set, the waiting copy has it already.
Problem Exchange::dropWaitingCopy()
{
    bool moved = false;
    const Problem undated = adoptNewerDate(launcher, waiting, moved);
    redated = redated || moved || undated;
    if (Problem problem = undated ? moveIntoPlace() : removeFile(waiting))
        return problem;
    if (undated)
        log.write("the copy took the launcher's place: " + *undated);
    // A server that does not go by dates would send it again and again.
    redated = redated && log.lastOf(outcomes) != startedAgain;
    log.write(wasInPlace);
    verdict = ExitCode::NothingToDo;
    return {};
}

/// The one that is kept already has been seen to start, other than the one in
/// place.
Problem Exchange::replaceLauncher()
{
    Problem problem;
    if (!untried)
        problem = isThere(launcher) ? keepOldLauncher() : dropKept();
    if (!problem)
        problem = moveIntoPlace();
    if (!problem) {
        log.write("put the newer launcher in place");
        untried = true;
        verdict = ExitCode::Done;
    } else if (!untried) {
        // Nothing has changed, and so there is nothing to keep.
        std::ignore = dropKept();
    }
    return problem;
}

Problem Exchange::moveIntoPlace()
{
    Problem problem = makeRunnable(waiting);
    return problem ? problem : moveOver(waiting, launcher);
}

/// Under another name first: what stands under the real one is never half.
Problem Exchange::keepOldLauncher() const
{
    if (Problem problem = dropKept())
        return problem;
    if (Problem problem = duplicate(launcher, unfinished))
        return problem;
    return moveOver(unfinished, kept);
}

/// Somebody else's doing: a scanner that took the new launcher away, say.
Problem Exchange::restoreMissingLauncher() const
{
    if (isThere(launcher) || !isThere(kept))
        return {};
    if (Problem problem = moveOver(kept, launcher))
        return problem;
    log.write("put the old launcher back, because there was none");
    return {};
}

void Exchange::resumeEarlierRun()
{
    log.write(untried ? "an earlier run put the newer launcher in place" : "nothing is waiting");
    verdict = untried ? ExitCode::Done : ExitCode::NothingToDo;
}

/// What stands in place and has not been tried is tried now, whatever has become
/// of the waiting file.
ExitCode Exchange::finish()
{
    if (untried)
        return startNewer();
    if (verdict != ExitCode::CouldNotReplace)
        std::ignore = dropKept();
    if (verdict == ExitCode::NothingToDo && redated)
        startAgain();
    return verdict;
}

ExitCode Exchange::startNewer()
{
    const std::optional<StartFailure> failure = start();
    if (!failure) {
        log.write(startedNewer);
        close();
        return ExitCode::Done;
    }
    log.write("the newer launcher does not start: " + failure->problem);
    if (failure->isFinal) {
        putBack();
        return ExitCode::RefusedFile;
    }
    const bool otherWaits = isThere(waiting);
    if (const Problem problem = insist([this] { return returnToWaiting(); }))
        log.write("left the newer launcher in place: " + *problem);
    else if (!putBack() && !otherWaits)
        std::ignore = removeFile(waiting);
    return ExitCode::CouldNotReplace;
}

void Exchange::startAgain()
{
    if (const std::optional<StartFailure> failure = start())
        log.write("the launcher does not start: " + failure->problem);
    else
        log.write(startedAgain);
}

/// Insists on it, unless that is of no use.
std::optional<StartFailure> Exchange::start() const
{
    std::optional<StartFailure> failure;
    std::ignore = insist([&]() -> Problem {
        failure = startDetached(launcher);
        return failure && !failure->isFinal ? Problem(failure->problem) : Problem();
    });
    return failure;
}

/// True if it has been put back.
bool Exchange::putBack() const
{
    if (!isThere(kept)) {
        log.write("there is no old launcher to put back");
        return false;
    }
    const Problem problem = insist([this] { return moveOver(kept, launcher); });
    log.write(
        problem ? "could not put the old launcher back: " + *problem : "put the old launcher back");
    return !problem;
}

/// The moment was wrong and the launcher may be right. Without an old one it
/// stays where it is.
Problem Exchange::returnToWaiting() const
{
    if (isThere(waiting) || !isThere(kept))
        return {};
    if (Problem problem = removeFile(unfinished))
        return problem;
    if (Problem problem = duplicate(launcher, unfinished))
        return problem;
    return moveOver(unfinished, waiting);
}

/// An old launcher that stays must not let the next run start the new one again.
void Exchange::close() const
{
    const Problem left = insist([this] {
        Problem problem = dropKept();
        if (problem)
            std::ignore = mark(kept, spent);
        return problem;
    });
    if (left)
        log.write("left the old launcher behind: " + *left);
}

Problem Exchange::dropKept() const
{
    const Problem problem = removeFile(unfinished);
    return problem ? problem : removeFile(kept);
}

/// The launcher hands over as long as something is waiting. When that has been in
/// vain twice, the player is to play all the same. The two updaters of one launcher
/// count once.
ExitCode Exchange::concede() const
{
    const std::string last = log.lastOf(outcomes);
    const std::uint32_t noted = markOn(waiting).value_or(0);
    const bool isTold = last.ends_with("process " + std::to_string(launcherId))
        || noted / 2 == launcherId % (markLimit / 2);
    if (isTold)
        return ExitCode::CouldNotReplace;
    const bool isSecond = last.starts_with(couldNotReplace) || (noted != 0 && noted % 2 == 0);
    if (isSecond)
        goBack();
    note(isSecond ? wentBack : couldNotReplace, isSecond);
    return ExitCode::CouldNotReplace;
}

/// Where nothing can be written, the waiting file itself can be dated.
void Exchange::note(std::string_view outcome, bool isSecond) const
{
    const std::uint32_t number = launcherId % (markLimit / 2) * 2 + (isSecond ? 1 : 0);
    if (!log.write(std::string(outcome) + std::to_string(launcherId)) && isThere(waiting))
        std::ignore = mark(waiting, number);
}

/// With the newer date, the server has nothing to send until there is a still
/// newer launcher. The waiting one goes when the one in place has been started.
void Exchange::goBack() const
{
    bool moved = false;
    if (const Problem problem = adoptNewerDate(launcher, waiting, moved))
        log.write("the launcher keeps its old date: " + *problem);
    if (const std::optional<StartFailure> failure = startDetached(launcher))
        log.write("the launcher in place does not start: " + failure->problem);
    else if (const Problem problem = removeFile(waiting))
        log.write("the newer launcher stays: " + *problem);
}

} // namespace Updater
