#include "publisher/build/removals.h"

#include "publisher/build/manifestdraft.h"
#include "publisher/build/sourcetree.h"
#include "publisher/common/names.h"
#include "publisher/common/placeholder.h"

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

/// Why the path names nothing in a client; empty when it does.
QString faultOfPath(const QString& path)
{
    if (path.startsWith(u'/'))
        return u"It begins with a slash. Give a path below the client folder, such as "
               "Data/deDE/patch-x.mpq."_s;
    if (path.endsWith(u'/'))
        return u"It ends in a slash, so it is a folder: give it to --remove-folder, or give the "
               "file without the slash."_s;
    const QStringList parts = path.split(u'/');
    for (const QString& part : parts) {
        if (part.isEmpty() || part == "."_L1 || part == ".."_L1)
            return u"Give a path below the client folder, such as Data/deDE/patch-x.mpq."_s;
        if (const QString fault = whyNotOnWindows(part); !fault.isEmpty())
            return u"No client has it: \"%1\" %2."_s.arg(part, fault);
    }
    return {};
}

PatchManifestEntry placeholder(const QString& name)
{
    return { .save = true,
             .dirOnly = false,
             .pathOffset = vacantName,
             .urlOffset = vacantName,
             .name = name };
}

PatchManifestEntry removal(const QString& folder, bool dirOnly, QChar separator)
{
    return { .save = false,
             .dirOnly = dirOnly,
             .pathOffset = ManifestDraft::pathOffset(folder, separator),
             .urlOffset = {},
             .name = vacantName };
}

class Planner {
public:
    Planner(RemovalPlan& target, const SourceTree& tree, QChar separatorOfPlayers)
        : plan(target)
        , source(tree)
        , separator(separatorOfPlayers)
    {
    }

    void add(const QStringList& given, bool dirOnly)
    {
        for (const QString& raw : given) {
            QString path = QString(raw).replace(u'\\', u'/');
            while (dirOnly && path.size() > 1 && path.endsWith(u'/'))
                path.chop(1); // as shells complete it
            const Refusal refusal = judge(path);
            if (plan.removals.contains({ path, dirOnly }))
                continue; // named twice, on the command line and in a list
            if (!refusal.id.isEmpty()) {
                plan.refusals.append(refusal);
                continue;
            }
            plan.removals.append({ path, dirOnly });
            removals.append(removal(path.section(u'/', 0, -2), dirOnly, separator));
        }
    }

    void finish(int realms)
    {
        if (removals.isEmpty() || !plan.refusals.isEmpty())
            return;
        plan.entries.fill(placeholder(name), realms);
        plan.entries += removals;
    }

private:
    Refusal judge(const QString& path)
    {
        if (const QString fault = faultOfPath(path); !fault.isEmpty())
            return { u"removal-path"_s, path, fault };
        if (source.reaches(path))
            return { u"removal-in-source"_s, path,
                     u"The source still publishes it, or something in it: launchers would remove "
                     "and install it in every run. Take it out of the source first."_s };
        const QString last = path.section(u'/', -1);
        if (name.isEmpty())
            name = last;
        if (name == last)
            return {};
        return { u"removal-second-name"_s, path,
                 u"A launcher takes the name of what it removes from the entry with the number "
                 "of the player's realm, so one manifest can remove one name for everybody, and "
                 "this one removes \"%1\". What works: put a file of a few bytes in its place in "
                 "the source, which overwrites it for every player; or remove the folder that "
                 "holds both; or remove it with a later publication, which players who skip the "
                 "present one do not get."_s.arg(name) };
    }

    RemovalPlan& plan;
    const SourceTree& source;
    QChar separator;
    QString name;
    QList<PatchManifestEntry> removals;
};

} // namespace

RemovalPlan
RemovalPlan::make(const RemovalRequest& request, const SourceTree& source, QChar separator)
{
    RemovalPlan plan;
    Planner planner(plan, source, separator);
    planner.add(request.files, false);
    planner.add(request.folders, true);
    planner.finish(request.realms);
    return plan;
}

} // namespace Publisher
