#include "publisher/build/launcherrelease.h"

#include "publisher/common/clock.h"
#include "publisher/common/dates.h"
#include "publisher/common/filework.h"
#include "publisher/common/programfault.h"
#include "publisher/common/treelock.h"
#include "update/launcherfiles.h"
#include "updater/programheader.h"

#include <QFile>
#include <QFileInfo>

#include <memory>
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
        const bool done = takeServerFolder() && publish(request.updater, updaterFileName)
            && publish(request.launcher, launcherFileName);
        return done ? ExitCode::Fine : ExitCode::InputOutput;
    }

private:
    bool attempt(const QString& error)
    {
        report.error = error;
        return error.isEmpty();
    }

    bool takeServerFolder()
    {
        if (request.dryRun)
            return true;
        if (!attempt(FileWork::createFolder(request.server)))
            return false;
        lock = std::make_unique<TreeLock>(request.server);
        if (!attempt(lock->error()))
            return false;
        // What a run that was cut off has left.
        FileWork::removeDrafts(request.server);
        return true;
    }

    bool publish(const QString& source, QLatin1StringView name)
    {
        const QString target = request.server + u'/' + name;
        const bool isThere = QFileInfo::exists(target);
        const FileWork::Digest fresh = FileWork::hash(source, nullptr);
        if (!attempt(fresh.error))
            return false;
        const bool same = isThere && FileWork::hash(target, nullptr).md5 == fresh.md5;
        const QString change = same && request.renew ? u"renewed"_s
            : same                                   ? u"unchanged"_s
            : isThere                                ? u"changed"_s
                                                     : u"added"_s;
        report.items.append({ name, QFileInfo(source).size(), change });
        return (same && !request.renew) || request.dryRun
            || attempt(exchange(source, target, fresh.md5));
    }

    QString exchange(const QString& source, const QString& target, const QString& md5) const
    {
        const QString copy = FileWork::draftOf(target);
        const FileWork::Digest written = FileWork::copy(source, copy, nullptr);
        QString error = written.error;
        if (error.isEmpty() && written.md5 != md5)
            error = FileWork::changedMeanwhile(source);
        if (error.isEmpty() && request.flush)
            error = FileWork::flush(copy);
        if (error.isEmpty())
            error = FileWork::setDate(copy, clock.nextAfter(FileWork::dateOf(target)));
        if (error.isEmpty())
            error = FileWork::replace(copy, target);
        if (!error.isEmpty())
            QFile::remove(copy);
        return error;
    }

    const LauncherRequest& request;
    Clock& clock;
    LauncherReport& report;
    const FileWork::PublicFiles publicFiles;
    std::unique_ptr<TreeLock> lock;
};

} // namespace

ExitCode releaseLauncher(const LauncherRequest& request, Clock& clock, LauncherReport& report)
{
    return Release(request, clock, report).run();
}

} // namespace Publisher
