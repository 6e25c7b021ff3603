#include "publisher/check/checkserved.h"

#include "publisher/common/clock.h"
#include "publisher/common/dates.h"
#include "publisher/common/filework.h"
#include "update/launcherfiles.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QProcess>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

constexpr QLatin1StringView infoName("launcher.info");
// The program limits itself by the work that it does; this is for a machine that
// gives it no time.
constexpr int longestWait = 120'000; // milliseconds

QList<Finding> datesAhead(const QString& tree)
{
    const Clock clock;
    QList<Finding> found;
    for (const auto name :
         { liveManifestFileName, testManifestFileName, launcherFileName, updaterFileName }) {
        const QDateTime date = FileWork::dateOf(tree + u'/' + name);
        if (clock.isAhead(date))
            found.append(
                { FindingId::DateAhead, name, 0,
                  u"It is dated %1, and this machine's clock says %2: until then every "
                  "start fetches it anew."_s.arg(Dates::shown(date), Dates::shown(clock.now())) });
    }
    return found;
}

enum class Layout { Done, Impossible, NotTried };

/// Whether the launcher's window can show the text. In a process of its own, since
/// the toolkit's layout does not always end, and since servers need no toolkit for
/// windows otherwise.
Layout layOut(const QString& program, const QString& path)
{
    // As the system says it of a program without its libraries.
    constexpr int exitNotLoaded = 127;
    QProcess layout;
    layout.setStandardOutputFile(QProcess::nullDevice());
    layout.setStandardErrorFile(QProcess::nullDevice());
    layout.start(program, { path });
    if (!layout.waitForFinished(longestWait)) {
        layout.kill();
        layout.waitForFinished();
        return Layout::Impossible;
    }
    if (layout.exitStatus() != QProcess::NormalExit)
        return Layout::Impossible;
    if (layout.exitCode() == exitNotLoaded)
        return Layout::NotTried;
    return layout.exitCode() == 0 ? Layout::Done : Layout::Impossible;
}

/// With the program that lays it out.
void look(const QFileInfo& info, const QString& program, CheckServed::Result& result)
{
    const Layout layout = layOut(program, info.filePath());
    result.isInfoLaidOut = layout != Layout::NotTried;
    if (layout == Layout::NotTried)
        result.notes.append(
            u"launcher.info has not been looked at: %1 lacks its libraries. Install Debian's "
            "package libqt6gui6."_s.arg(program));
    else if (layout == Layout::Impossible)
        result.findings.append(
            { FindingId::InfoFreezes, infoName, 0,
              u"The window cannot lay out its %1 bytes within 5 seconds and 1 GiB: the "
              "launcher of every player stands still at its start."_s.arg(info.size()) });
}

} // namespace

namespace CheckServed {

Result inspect(const QString& tree)
{
    Result result{ .findings = datesAhead(tree) };
    const QFileInfo info(tree + u'/' + infoName);
    if (!info.isFile())
        return result;
    const QFileInfo program(QCoreApplication::applicationDirPath() + "/halden-layout"_L1);
    result.isInfoLaidOut = program.isExecutable();
    if (!program.isExecutable())
        result.notes.append(
            u"launcher.info has not been looked at: there is no %1. Install it beside "
            "halden-publish."_s.arg(program.filePath()));
    else if (!info.isReadable())
        result.findings.append({ FindingId::InfoMissing, infoName, 0,
                                 u"%1 cannot be read, by you at least."_s.arg(info.filePath()) });
    else
        look(info, program.filePath(), result);
    return result;
}

} // namespace CheckServed

} // namespace Publisher
