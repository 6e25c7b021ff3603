#include "publisher/build/removals.h"

#include "publisher/build/manifestdraft.h"
#include "publisher/build/sourcetree.h"
#include "publisher/common/names.h"
#include "publisher/common/placeholder.h"

#include <optional>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

/// What keeps the path from naming something in a client.
std::optional<Finding> faultOfPath(const QString& path)
{
    const auto fault = [&](const QString& text, const QString& ownRemedy = {}) {
        return Finding{ FindingId::RemovalPath, path, 0, text, ownRemedy };
    };
    if (path.startsWith(u'/'))
        return fault(u"It begins with a slash."_s);
    if (path.endsWith(u'/'))
        return fault(
            u"It ends in a slash, so it is a folder."_s,
            u"Give it to --remove-folder, or give the file without the slash."_s);
    const QStringList parts = path.split(u'/');
    for (const QString& part : parts) {
        if (part.isEmpty() || part == "."_L1 || part == ".."_L1)
            return fault(u"It names nothing in a client."_s);
        if (const QString why = whyNotOnWindows(part); !why.isEmpty())
            return fault(u"No client has it: \"%1\" %2."_s.arg(part, why));
    }
    return std::nullopt;
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
            const std::optional<Finding> refusal = judge(path);
            if (plan.removals.contains({ path, dirOnly }))
                continue; // named twice, on the command line and in a list
            if (refusal) {
                plan.refusals.append(*refusal);
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
    std::optional<Finding> judge(const QString& path)
    {
        if (auto fault = faultOfPath(path))
            return fault;
        if (source.reaches(path))
            return Finding{ FindingId::RemovalInSource, path, 0,
                            u"The source still publishes it, or something in it: launchers would "
                            "remove and install it in every run."_s };
        const QString last = path.section(u'/', -1);
        if (name.isEmpty())
            name = last;
        if (name == last)
            return std::nullopt;
        return Finding{ FindingId::RemovalSecondName, path, 0,
                        u"A launcher takes the name of what it removes from the entry with the "
                        "number of the player's realm, so one manifest can remove one name for "
                        "everybody, and this one removes \"%1\"."_s.arg(name) };
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
