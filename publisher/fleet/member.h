#pragma once

#include "publisher/fleet/fleetfile.h"
#include "publisher/fleet/pushedtree.h"
#include "publisher/fleet/storage.h"

#include <QHash>
#include <QString>
#include <QTemporaryDir>

#include <functional>
#include <memory>
#include <vector>

namespace Publisher {

/// One server of the fleet while a push is under way.
struct Member {
    explicit Member(FleetServer described);

    /// What it has before anything is copied to it.
    [[nodiscard]] Problem survey();
    /// Whether an earlier push was cut off at it.
    bool isInterrupted() const;

    FleetServer server;
    Storage storage;
    /// Of its patch files, and of what is on its way.
    QHash<QString, qint64> sizes = {};
    /// Its manifests and other files of the first level, copied here.
    PushedTree present = {};
    /// It gives files the time of their arrival, whatever else they are given.
    bool datesByItself = false;

    qint64 filesCopied = 0;
    qint64 bytesCopied = 0;
    qint64 milliseconds = 0;
    /// Why it has not come as far as the others.
    Problem problem = {};

private:
    std::unique_ptr<QTemporaryDir> copies;
};

/// Does the same with all servers at once. False when one of them has a problem, which
/// it keeps; the others come to the end of the step.
class Members {
public:
    using Step = std::function<Problem(Member&)>;

    explicit Members(const QList<FleetServer>& servers);

    bool forEach(const Step& step);
    /// With those alone that the condition names.
    bool forEachThat(const std::function<bool(const Member&)>& condition, const Step& step);

    std::vector<Member>& all();
    const std::vector<Member>& all() const;

private:
    std::vector<Member> members;
};

} // namespace Publisher
