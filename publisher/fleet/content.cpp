#include "publisher/fleet/content.h"

#include "publisher/fleet/webquestions.h"

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

/// Tells a progress line how much more of one copy is done.
class CopyProgress {
public:
    CopyProgress(Member& receiver, Progress& line)
        : member(receiver)
        , progress(line)
    {
    }

    Rclone::TakeProgress taker()
    {
        return [this](qint64 bytes, qint64 files) {
            take(bytes, files);
        };
    }

    void finish(Progress::Count whole)
    {
        take(whole.bytes, whole.files);
        member.filesCopied += whole.files;
        member.bytesCopied += whole.bytes;
    }

private:
    void take(qint64 bytes, qint64 files)
    {
        progress.addBytes(bytes - done.bytes);
        for (; done.files < files; ++done.files)
            progress.addFile();
        done.bytes = bytes;
    }

    Member& member;
    Progress& progress;
    Progress::Count done{};
};

Progress::Count countOf(const QStringList& files, const PushedTree& tree)
{
    Progress::Count count{ files.size(), 0 };
    for (const QString& file : files)
        count.bytes += tree.content.value(file).size;
    return count;
}

} // namespace

ContentPlan ContentPlan::of(const Member& member, const PushedTree& tree)
{
    ContentPlan plan;
    for (auto file = tree.content.begin(); file != tree.content.end(); ++file) {
        const QString& path = file.key();
        const bool isNamed = member.present.content.value(path).md5 == file->md5;
        const bool isThere = member.sizes.contains(path);
        const bool isRight = isThere && member.sizes.value(path) == file->size;
        if (!isThere && !isNamed)
            plan.add.append(path);
        else if (!isRight)
            plan.replace.append(path);
        if (!isRight || !isNamed)
            plan.verify.append(path);
    }
    plan.toCopy = countOf(plan.add + plan.replace, tree);
    plan.toVerify = countOf(plan.verify, tree);
    const qint64 addresses = member.server.connect.size();
    plan.toVerify = { plan.toVerify.files * addresses, plan.toVerify.bytes * addresses };
    return plan;
}

Problem
Content::copy(Member& member, const PushedTree& tree, const ContentPlan& plan, Progress& progress)
{
    CopyProgress copying(member, progress);
    if (Problem problem = member.storage.add(tree.folder, plan.add, copying.taker()))
        return problem;
    copying.finish(countOf(plan.add, tree));
    return replace(member, tree, plan.replace, progress);
}

Problem Content::replace(
    Member& member, const PushedTree& tree, const QStringList& files, Progress& progress)
{
    CopyProgress copying(member, progress);
    const Problem problem = inOrder(
        [&] { return member.storage.stage(tree.folder, files, copying.taker()); },
        [&] { return member.storage.placeStagedContent(files); });
    if (!problem)
        copying.finish(countOf(files, tree));
    return problem;
}

Problem Content::verify(
    Member& member, const PushedTree& tree, const QStringList& files, int secondsOfSilence,
    Progress& progress, QStringList& wrong)
{
    for (const ConnectAddress& address : member.server.connect) {
        const QList<ProbeAnswer> answers
            = WebQuestions::ask(member.server, address, files, secondsOfSilence, [&](qint64 bytes) {
                  progress.addBytes(bytes);
              });
        for (qsizetype i = 0; i < files.size(); ++i) {
            progress.addFile();
            const QString fault = WebQuestions::fault(answers.at(i), secondsOfSilence);
            if (!fault.isEmpty())
                return u"%1 %2 when it is asked for %3"_s.arg(address.text(), fault, files.at(i));
            if (QString::fromLatin1(answers.at(i).md5) != tree.content.value(files.at(i)).md5
                && !wrong.contains(files.at(i)))
                wrong.append(files.at(i));
        }
    }
    return {};
}

} // namespace Publisher
