#include "publisher/fleet/content.h"

#include "publisher/fleet/webquestions.h"

#include <QSet>

#include <algorithm>
#include <memory>
#include <vector>

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

    Rclone::Listener listener()
    {
        return { .progress = [this](qint64 bytes, qint64 files) {
            take(bytes, files);
        } };
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

/// Copies files beside their places and moves them there.
Problem
replace(Member& member, const PushedTree& tree, const QStringList& files, Progress& progress)
{
    CopyProgress copying(member, progress);
    Problem problem = inOrder(
        [&] { return member.storage.stage(tree.folder, files, copying.listener()); },
        [&] { return member.storage.placeStagedContent(files); });
    if (!problem)
        copying.finish(countOf(files, tree));
    return problem;
}

Problem faultOf(
    const ConnectAddress& address, const QString& file, const ProbeAnswer& answer,
    int secondsOfSilence)
{
    const QString fault = WebQuestions::fault(answer, secondsOfSilence);
    if (fault.isEmpty())
        return {};
    return u"%1 %2 when it is asked for %3"_s.arg(address.text(), fault, file);
}

/// Asks for files at all addresses of a server.
class Arrivals {
public:
    Arrivals(
        const FleetServer& server, const PushedTree& pushed, int secondsOfSilence, Progress& line)
        : tree(pushed)
        , silence(secondsOfSilence)
        , progress(line)
    {
        for (const ConnectAddress& address : server.connect) {
            const auto take = [this, address](const QString& file, const ProbeAnswer& answer) {
                compare(address, file, answer);
            };
            questions.push_back(std::make_unique<WebQuestions>(server, address, silence, take));
            questions.back()->setListener([this](qint64 bytes) { progress.addBytes(bytes); });
        }
    }

    void expect(const QStringList& files)
    {
        expected = { files.cbegin(), files.cend() };
    }

    /// Once, and only for what is expected.
    void ask(const QString& file)
    {
        if (!expected.remove(file))
            return;
        for (const auto& address : questions)
            address->ask(file);
    }

    /// Returns when everything is answered.
    void askForTheRest()
    {
        const QSet<QString> rest = expected;
        for (const QString& file : rest)
            ask(file);
        for (const auto& address : questions)
            address->awaitAnswers();
    }

    QStringList wrong() const
    {
        return { others.cbegin(), others.cend() };
    }

    Problem problem() const
    {
        return fault;
    }

private:
    void compare(const ConnectAddress& address, const QString& file, const ProbeAnswer& answer)
    {
        progress.addFile();
        if (!fault)
            fault = faultOf(address, file, answer, silence);
        if (QString::fromLatin1(answer.md5) != tree.content.value(file).md5)
            others.insert(file);
    }

    const PushedTree& tree;
    int silence;
    Progress& progress;
    QSet<QString> expected;
    QSet<QString> others;
    Problem fault;
    std::vector<std::unique_ptr<WebQuestions>> questions;
};

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

ContentPlan ContentPlan::again(const QStringList& files)
{
    ContentPlan plan;
    plan.replace = files;
    plan.verify = files;
    return plan;
}

Problem Content::bring(
    Member& member, const PushedTree& tree, const ContentPlan& plan, int secondsOfSilence,
    Progress& progress, QStringList& wrong)
{
    Arrivals arrivals(member.server, tree, secondsOfSilence, progress);
    arrivals.expect(plan.verify);
    CopyProgress adding(member, progress);
    Rclone::Listener listener = adding.listener();
    listener.arrived = [&](const QString& file) {
        arrivals.ask(file);
    };
    if (Problem problem = member.storage.add(tree.folder, plan.add, listener))
        return problem;
    adding.finish(countOf(plan.add, tree));
    if (Problem problem = replace(member, tree, plan.replace, progress))
        return problem;
    arrivals.askForTheRest();
    wrong = arrivals.wrong();
    return arrivals.problem();
}

Problem Content::lookAgain(const Member& member, const PushedTree& tree, int secondsOfSilence)
{
    constexpr qsizetype most = 20;
    const QStringList all = tree.content.keys();
    const qsizetype count = std::min(most, all.size());
    Problem problem;
    for (const ConnectAddress& address : member.server.connect) {
        WebQuestions questions(
            member.server, address, secondsOfSilence,
            [&](const QString& file, const ProbeAnswer& answer) {
                if (!problem)
                    problem = faultOf(address, file, answer, secondsOfSilence);
            });
        questions.setBody(Inquiry::Body::Beginning);
        for (qsizetype i = 0; i < count; ++i)
            questions.ask(all.at(i * all.size() / count));
        questions.awaitAnswers();
    }
    return problem;
}

} // namespace Publisher
