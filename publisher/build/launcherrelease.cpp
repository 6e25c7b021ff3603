#include "publisher/build/launcherrelease.h"

#include "publisher/build/servedfolder.h"
#include "publisher/common/dates.h"
#include "publisher/common/programfault.h"
#include "update/launcherfiles.h"
#include "updater/programheader.h"

#include <QFile>
#include <QFileInfo>

#include <optional>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

/// What players' updaters hold a program against: they throw away any other
/// file, so that no player would ever get it.
std::optional<Finding> judge(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return Finding{ FindingId::FileUnreadable, path, 0,
                        u"It cannot be read: %1."_s.arg(file.errorString()) };
    const QByteArray head = file.read(static_cast<qint64>(Updater::programHeadSize));
    const QString fault = faultOfProgram(head, file.size());
    if (fault.isEmpty())
        return std::nullopt;
    return Finding{ FindingId::NotAProgram, path, 0,
                    u"Players' updaters would throw it away: it %1."_s.arg(fault),
                    u"Build it anew, or name the right file."_s };
}

class Release {
public:
    Release(const LauncherRequest& wanted, Clock& time, LauncherReport& target)
        : request(wanted)
        , clock(time)
        , report(target)
        , served(request.server)
        , steps(target.error)
    {
    }

    ExitCode run()
    {
        for (const QString& path : { request.updater, request.launcher }) {
            if (const auto refusal = judge(path))
                report.refusals.append(*refusal);
        }
        if (!request.renew) {
            for (const auto name : { updaterFileName, launcherFileName })
                report.refusals += Dates::ahead(request.server + u'/' + name, clock);
        }
        if (!report.refusals.isEmpty())
            return ExitCode::Findings;
        const bool done = (request.dryRun || steps.attempt(served.take()))
            && publish(request.updater, updaterFileName)
            && publish(request.launcher, launcherFileName);
        return done ? ExitCode::Fine : ExitCode::InputOutput;
    }

private:
    bool publish(const QString& source, QLatin1StringView name)
    {
        const QString target = served.path(name);
        const bool isThere = QFileInfo::exists(target);
        const FileWork::Digest fresh = FileWork::hash(source, nullptr);
        if (!steps.attempt(fresh.problem))
            return false;
        const bool same = isThere && FileWork::hash(target, nullptr).md5 == fresh.md5;
        const QString change = same && request.renew ? u"renewed"_s
            : same                                   ? u"unchanged"_s
            : isThere                                ? u"changed"_s
                                                     : u"added"_s;
        report.items.append({ name, QFileInfo(source).size(), change });
        return (same && !request.renew) || request.dryRun
            || steps.attempt(replace(name, source, fresh.md5));
    }

    Problem replace(QLatin1StringView name, const QString& source, const QString& md5) const
    {
        const auto write = [&](const QString& draft) {
            const FileWork::Digest written = FileWork::copy(source, draft, nullptr);
            if (!written.problem && written.md5 != md5)
                return Problem(FileWork::changedMeanwhile(source));
            return written.problem;
        };
        return served.replace({ .name = name, .write = write, .flush = request.flush }, clock);
    }

    const LauncherRequest& request;
    Clock& clock;
    LauncherReport& report;
    ServedFolder served;
    FirstProblem steps;
};

} // namespace

ExitCode releaseLauncher(const LauncherRequest& request, Clock& clock, LauncherReport& report)
{
    return Release(request, clock, report).run();
}

} // namespace Publisher
