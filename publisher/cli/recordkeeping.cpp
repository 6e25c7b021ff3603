#include "publisher/cli/recordkeeping.h"

#include "publisher/cli/output.h"
#include "publisher/common/filework.h"
#include "publisher/common/treelock.h"
#include "update/launcherfiles.h"

#include <QCommandLineParser>
#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace Publisher {

void RecordKeeping::addOption(QCommandLineParser& parser)
{
    parser.addOption(
        { u"record"_s,
          u"Adds what is published to this record, which `minisign -Sm FILE` signs and probe "
          "--record holds against a server."_s,
          u"FILE"_s });
}

RecordKeeping::RecordKeeping(const QCommandLineParser& parser, Output& target)
    : output(target)
    , path(parser.value(u"record"_s))
    , time(QDateTime::currentDateTimeUtc())
{
}

bool RecordKeeping::complain(const Problem& problem)
{
    if (problem)
        output.error(*problem);
    return problem.has_value();
}

bool RecordKeeping::isReady()
{
    if (path.isEmpty())
        return true;
    const QFileInfo folder(folderOfRecord());
    if (!folder.isDir() || !folder.isWritable())
        return !complain(u"the record %1 cannot be written: see that its folder is there and that "
                         "you may write into it"_s.arg(path));
    return !complain(read());
}

Problem RecordKeeping::read()
{
    record = {};
    QFile file(path);
    if (!file.exists())
        return {};
    if (!file.open(QIODevice::ReadOnly))
        return u"the record %1 cannot be read: %2. Give yourself the right to, or name another "
               "file with --record"_s.arg(path, file.errorString());
    const Problem problem = record.read(file.readAll());
    return problem ? u"%1: %2. Name another file with --record, and run the same command "
                     "again"_s.arg(path, *problem)
                   : Problem();
}

QString RecordKeeping::folderOfRecord() const
{
    return QFileInfo(path).absolutePath();
}

ExitCode RecordKeeping::addPatch(const QString& server, Kind kind, bool next)
{
    const QString nextManifest = ServerLayout::nextManifestName();
    const auto follow = [&](const QString& name) {
        return record.followManifest(server, name, kind, time);
    };
    return add([&] {
        // It goes when the live one says the same.
        const bool isNextGone = kind == Kind::Live && !QFile::exists(server + u'/' + nextManifest);
        return inOrder(
            [&] { return follow(next ? nextManifest : ServerLayout::manifestName(kind)); },
            [&] { return isNextGone ? follow(nextManifest) : Problem(); });
    });
}

ExitCode RecordKeeping::addLauncher(const QString& server)
{
    return add([&] {
        return inOrder(
            [&] { return record.followProgram(server, updaterFileName, time); },
            [&] { return record.followProgram(server, launcherFileName, time); });
    });
}

ExitCode RecordKeeping::add(const std::function<Problem()>& follow)
{
    if (path.isEmpty())
        return ExitCode::Fine;
    const TreeLock lock(folderOfRecord(), TreeLock::IfHeld::Wait);
    const auto write = [&] {
        return record.newLines() > 0 ? FileWork::store(path, record.text()) : Problem();
    };
    const Problem problem
        = inOrder([&] { return lock.problem(); }, [&] { return read(); }, follow, write);
    output.set(u"recorded"_s, record.newLines());
    if (complain(problem))
        return ExitCode::InputOutput;
    if (record.newLines() > 0)
        output.line(u"%1 lines have come to the record; `minisign -Sm %2` signs it."_s.arg(
            QString::number(record.newLines()), path));
    else
        output.line(u"All of it is on record."_s);
    return ExitCode::Fine;
}

} // namespace Publisher
