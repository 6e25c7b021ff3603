#include "updater/exchange.h"

#include "updater/filenames.h"
#include "updater/limits.h"

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

} // namespace

Exchange::Exchange(const Path& folder, const Log& diary)
    : log(diary)
    , launcher(fileIn(folder, launcherName))
    , waiting(fileIn(folder, waitingName))
    , kept(fileIn(folder, keptName))
    , unfinished(fileIn(folder, unfinishedName))
{
}

ExitCode Exchange::run()
{
    if (const Problem problem = insist([this] { return attempt(); })) {
        log.write("gave up: " + *problem);
        return verdict;
    }
    return verdict == ExitCode::Done ? start() : verdict;
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
    return isThere(waiting) ? attemptWithWaitingFile() : resumeEarlierRun();
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
    const std::string refusal = std::string("refused ") + waitingName + ", which " + fault;
    Problem problem = dropKept();
    if (!problem)
        problem = removeFile(waiting);
    if (problem)
        return refusal + ": " + *problem;
    log.write(refusal);
    return {};
}

/// A server that goes by dates keeps the same program back from now on.
Problem Exchange::dropWaitingCopy()
{
    if (const Problem problem = adoptNewerDate(launcher, waiting))
        log.write("the launcher keeps its old date: " + *problem);
    if (Problem problem = dropKept())
        return problem;
    if (Problem problem = removeFile(waiting))
        return problem;
    log.write(std::string(waitingName) + " was the launcher in place");
    verdict = ExitCode::NothingToDo;
    return {};
}

Problem Exchange::replaceLauncher()
{
    Problem problem = isThere(launcher) ? keepOldLauncher() : dropKept();
    if (!problem)
        problem = makeRunnable(waiting);
    if (!problem)
        problem = moveOver(waiting, launcher);
    if (problem) {
        // Nothing has changed, and so there is nothing to keep.
        std::ignore = dropKept();
        return problem;
    }
    log.write("put the newer launcher in place");
    verdict = ExitCode::Done;
    return {};
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

/// Without a waiting file, a kept launcher that differs from the one in place
/// tells of a run that was killed before it could start the new one.
Problem Exchange::resumeEarlierRun()
{
    bool exchanged = false;
    if (isThere(kept)) {
        bool same = false;
        if (Problem problem = compare(kept, launcher, same))
            return problem;
        exchanged = !same;
    }
    if (exchanged) {
        log.write("an earlier run put the newer launcher in place");
        verdict = ExitCode::Done;
        return {};
    }
    if (Problem problem = dropKept())
        return problem;
    log.write("nothing is waiting");
    verdict = ExitCode::NothingToDo;
    return {};
}

ExitCode Exchange::start()
{
    if (const Problem problem = startDetached(launcher)) {
        log.write("the newer launcher does not start: " + *problem);
        putBack();
        return ExitCode::RefusedFile;
    }
    log.write("started the launcher");
    if (const Problem problem = insist([this] { return dropKept(); }))
        log.write("left the old launcher behind: " + *problem);
    return ExitCode::Done;
}

void Exchange::putBack() const
{
    if (!isThere(kept))
        log.write("there is no old launcher to put back");
    else if (const Problem problem = insist([this] { return moveOver(kept, launcher); }))
        log.write("could not put the old launcher back: " + *problem);
    else
        log.write("put the old launcher back");
}

Problem Exchange::dropKept() const
{
    const Problem problem = removeFile(unfinished);
    return problem ? problem : removeFile(kept);
}

} // namespace Updater
