#include "publisher/fleet/acquaintance.h"

#include "publisher/common/clock.h"
#include "publisher/common/dates.h"
#include "publisher/common/filework.h"
#include "publisher/common/serverlayout.h"
#include "publisher/fleet/webquestions.h"

#include <QUuid>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

constexpr qint64 mostApart = 10; // seconds

QString beginningOfTokens()
{
    return ServerLayout::patchFolder() + u"/halden-push-"_s;
}

/// What speaks against a clock that goes by so much. The answer was made at some moment
/// since `asked`.
Problem judgeClock(const ProbeAnswer& answer, const QDateTime& asked, const Clock& clock)
{
    const QDateTime now = clock.now();
    if (!answer.date.isValid()
        || (answer.date >= asked.addSecs(-mostApart) && answer.date <= now.addSecs(mostApart)))
        return {};
    return u"its clock says %1, this machine's %2: dates decide what launchers fetch. Set the "
           "wrong one right (on Debian, timedatectl says whether it is synchronised)"_s.arg(
               Dates::shown(answer.date), Dates::shown(now));
}

/// Of pushes before this one.
QStringList tokensAt(const Member& member)
{
    QStringList tokens = member.sizes.keys();
    tokens.removeIf([](const QString& path) { return !path.startsWith(beginningOfTokens()); });
    return tokens;
}

class Round {
public:
    Round(Members& all, int seconds, const Clock& time)
        : members(all)
        , secondsOfSilence(seconds)
        , clock(time)
        , name(beginningOfTokens() + QUuid::createUuid().toString(QUuid::Id128))
    {
    }

    bool run()
    {
        members.forEach([this](Member& member) { return leave(member); });
        members.forEach([this](Member& member) { return askFor(member); });
        return members.forEach([this](Member& member) { return clear(member); });
    }

private:
    static QByteArray contentFor(const FleetServer& server)
    {
        return "halden-publish asks which server this is: " + server.name.toUtf8() + '\n';
    }

    Problem leave(Member& member) const
    {
        const QTemporaryDir folder;
        const QString path = folder.filePath(name);
        return inOrder(
            [&] { return FileWork::createFolder(folder.filePath(ServerLayout::patchFolder())); },
            [&] { return FileWork::write(path, contentFor(member.server)); },
            [&] { return member.storage.add(folder.path(), { name }); });
    }

    Problem askFor(Member& member) const
    {
        for (const ConnectAddress& address : member.server.connect) {
            const QDateTime asked = clock.now();
            const ProbeAnswer answer
                = WebQuestions::answer(member.server, address, name, secondsOfSilence);
            Problem problem = inOrder(
                [&] { return judge(member, address, answer); },
                [&] { return judgeClock(answer, asked, clock); });
            if (problem)
                return problem;
        }
        return {};
    }

    Problem
    judge(const Member& member, const ConnectAddress& address, const ProbeAnswer& answer) const
    {
        const QString fault = WebQuestions::fault(answer, secondsOfSilence);
        if (answer.status == HttpStatus::notFound)
            return u"%1 does not hand out what lies in %2; correct one of the two"_s.arg(
                address.text(), member.server.remote);
        if (!fault.isEmpty())
            return address.text() + u' ' + fault;
        for (const Member& other : members.all()) {
            if (&other != &member && answer.body == contentFor(other.server))
                return u"%1 is the address of server \"%2\"; correct its line"_s.arg(
                    address.text(), other.server.name);
        }
        if (answer.body != contentFor(member.server))
            return u"%1 hands out something else than what lies in %2; correct one of the two"_s
                .arg(address.text(), member.server.remote);
        return {};
    }

    /// With what earlier pushes have left that were cut off here.
    Problem clear(Member& member) const
    {
        return member.storage.remove(tokensAt(member) + QStringList{ name });
    }

    Members& members;
    int secondsOfSilence;
    const Clock& clock;
    QString name;
};

} // namespace

bool Acquaintance::make(Members& members, int secondsOfSilence, const Clock& clock)
{
    return Round(members, secondsOfSilence, clock).run();
}

bool Acquaintance::hasLeftSomething(const Member& member)
{
    return !tokensAt(member).isEmpty();
}

} // namespace Publisher
