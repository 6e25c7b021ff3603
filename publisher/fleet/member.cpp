#include "publisher/fleet/member.h"

#include "publisher/common/parallel.h"

#include <QElapsedTimer>

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

namespace Publisher {

Member::Member(FleetServer described)
    : server(std::move(described))
    , storage(server.remote)
    , copies(std::make_unique<QTemporaryDir>())
{
}

Problem Member::survey()
{
    if (!copies->isValid())
        return u"no folder for copies of its manifests can be made: %1. Make room in the folder "
               "for temporary files, or name another one in TMPDIR"_s.arg(copies->errorString());
    Problem unlisted;
    Problem unread;
    Parallel::run(2, 2, [&](qsizetype number, int) {
        if (number == 0)
            unlisted = storage.list(sizes);
        else
            unread = storage.fetch(plainRootFiles() + launcherRootFiles(), copies->path());
    });
    if (!unlisted && !unread)
        present = PushedTree::read(copies->path());
    return unlisted ? unlisted : unread;
}

bool Member::isInterrupted() const
{
    const QString beginning = Storage::stagingFolder() + u'/';
    return std::any_of(sizes.keyBegin(), sizes.keyEnd(), [&](const QString& path) {
        return path.startsWith(beginning);
    });
}

Members::Members(const QList<FleetServer>& servers)
{
    members.reserve(static_cast<std::size_t>(servers.size()));
    for (const FleetServer& server : servers)
        members.emplace_back(server);
}

bool Members::forEach(const Step& step)
{
    return forEachThat([](const Member&) { return true; }, step);
}

bool Members::forEachThat(const std::function<bool(const Member&)>& condition, const Step& step)
{
    const int count = static_cast<int>(members.size());
    Parallel::run(count, count, [&](qsizetype number, int) {
        Member& member = members.at(static_cast<std::size_t>(number));
        if (member.problem || !condition(member))
            return;
        QElapsedTimer time;
        time.start();
        member.problem = step(member);
        member.milliseconds += time.elapsed();
    });
    return std::none_of(members.cbegin(), members.cend(), [](const Member& member) {
        return member.problem.has_value();
    });
}

std::vector<Member>& Members::all()
{
    return members;
}

const std::vector<Member>& Members::all() const
{
    return members;
}

} // namespace Publisher
