// What a whole update run costs in threads, descriptors and memory, against the
// number of files in the manifest. Every run is a process of its own: the real
// main window, the two update runs that its start-up begins, and a real server.

#include "app/constants.h"
#include "ui/mainwindow.h"

#include <QApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QSettings>
#include <QTimer>

#include <algorithm>
#include <cstdio>

namespace {

constexpr int bytesPerFile = 4096;

struct Usage {
    qint64 threads = 0;
    qint64 descriptors = 0;
    qint64 residentKiB = 0;
    qint64 peakKiB = 0;

    static Usage now();
};

qint64 entriesOf(const QString& folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size();
}

qint64 statusValue(const QString& status, const char* field)
{
    const QRegularExpression line(QString::fromLatin1(field) + QStringLiteral(":\\s+(\\d+)"));
    return line.match(status).captured(1).toLongLong();
}

Usage Usage::now()
{
    QFile file(QStringLiteral("/proc/self/status"));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("cannot read %s", qPrintable(file.fileName()));
    const QString status = QString::fromLatin1(file.readAll());
    return {
        // Listing the folder opens it: that descriptor is not the launcher's.
        .threads = entriesOf(QStringLiteral("/proc/self/task")),
        .descriptors = entriesOf(QStringLiteral("/proc/self/fd")) - 1,
        .residentKiB = statusValue(status, "VmRSS"),
        .peakKiB = statusValue(status, "VmHWM"),
    };
}

/// Follows a run by its debug log, which is all that a run tells the outside.
class RunObserver {
public:
    static void follow(QtMsgType, const QMessageLogContext&, const QString& message)
    {
        if (message == QStringLiteral("got an answer"))
            sample();
        if (message == QStringLiteral("now copy Data into Client") && --runsLeft == 0)
            QTimer::singleShot(0, qApp, &QCoreApplication::quit);
    }

    static void sample()
    {
        const Usage usage = Usage::now();
        ++answers;
        mostThreads = std::max(mostThreads, usage.threads);
        mostDescriptors = std::max(mostDescriptors, usage.descriptors);
    }

    static inline int runsLeft = 2;
    static inline qint64 answers = 0;
    static inline qint64 mostThreads = 0;
    static inline qint64 mostDescriptors = 0;
};

/// The child's whole life: one start of the launcher, and one line of figures.
int measureOneRun()
{
    const Usage before = Usage::now();
    qInstallMessageHandler(&RunObserver::follow);
    QElapsedTimer timer;
    timer.start();
    MainWindow window;
    window.show();
    QApplication::exec();
    const double seconds = static_cast<double>(timer.elapsed()) / 1000;
    const Usage after = Usage::now();
    std::printf(
        "%lld %lld %lld %lld %lld %lld %lld %.2f\n", RunObserver::answers, RunObserver::mostThreads,
        RunObserver::mostDescriptors, after.threads, after.descriptors, before.residentKiB,
        after.peakKiB, seconds);
    return 0;
}

void write(const QString& path, const QByteArray& content)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write %s: %s", qPrintable(path), qPrintable(file.errorString()));
}

QByteArray contentOf(int n)
{
    return QByteArray::number(n).rightJustified(bytesPerFile, '.');
}

/// A server tree whose manifest names `files` files of 4 KiB.
void publish(const QString& tree, int files)
{
    const QString folder = tree + QStringLiteral("/wow-client-patch/live/bench");
    QDir().mkpath(folder);
    QFile::remove(tree + QStringLiteral("/patch.ini"));
    QSettings manifest(tree + QStringLiteral("/patch.ini"), QSettings::IniFormat);
    // The first entry makes the folder in the cache that the others need.
    manifest.setValue("file1", "Data");
    manifest.setValue("file1-dirOnly", true);
    manifest.setValue("file1-pathOffset", ".");
    for (int n = 2; n <= files + 1; ++n) {
        const QString key = QStringLiteral("file%1").arg(n);
        const QString name = QStringLiteral("patch-%1.mpq").arg(n);
        const QByteArray hash = QCryptographicHash::hash(contentOf(n), QCryptographicHash::Md5);
        manifest.setValue(key, name);
        manifest.setValue(key + QStringLiteral("-urlOffset"), "bench");
        manifest.setValue(key + QStringLiteral("-hash"), QString::fromLatin1(hash.toHex()));
        write(folder + u'/' + name, contentOf(n));
    }
    manifest.setValue("numberOfFiles", files + 1);
}

/// A player's folder as it is before the first evening, but for one realm.
void resetApplicationFolder()
{
    const QString folder = QCoreApplication::applicationDirPath();
    QDir(folder + QStringLiteral("/ClientDataStorage")).removeRecursively();
    QDir(folder + QStringLiteral("/Settings")).removeRecursively();
    QDir().mkpath(folder + QStringLiteral("/Settings"));
    QDir().mkpath(QStringLiteral("/home/player/client/Data"));
    QSettings realms(folder + QStringLiteral("/Settings/realms.ini"), QSettings::IniFormat);
    realms.setValue("realms/size", 1);
    realms.setValue("realms/1-realmName", "Bench");
    realms.setValue("realms/1-clientPath", "/home/player/client");
    realms.setValue("selected_realm/realmid", 1);
}

void reportRun(int files)
{
    resetApplicationFolder();
    QProcess run;
    run.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    run.start(QCoreApplication::applicationFilePath(), { QStringLiteral("--run") });
    run.waitForFinished(-1);
    const QList<QByteArray> values = run.readAllStandardOutput().trimmed().split(' ');
    if (run.exitCode() != 0 || values.size() != 8)
        qFatal("the run of %d files ended badly", files);
    std::printf(
        "%6d %9s %8s %12s %8s %12s %10s %9s %8s\n", files, values[0].constData(),
        values[1].constData(), values[2].constData(), values[3].constData(), values[4].constData(),
        values[5].constData(), values[6].constData(), values[7].constData());
    std::fflush(stdout);
}

QList<int> fileCounts(const QStringList& arguments)
{
    QList<int> counts;
    for (const QString& argument : arguments)
        counts.append(argument.toInt());
    return counts.isEmpty() ? QList<int>{ 10, 100, 1000, 5000 } : counts;
}

} // namespace

int main(int argc, char* argv[])
{
    const QApplication application(argc, argv);
    QCoreApplication::setApplicationVersion(launcherVersion);
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    if (arguments.value(0) == QStringLiteral("--run"))
        return measureOneRun();
    if (arguments.isEmpty()) {
        std::fprintf(stderr, "usage: bench_growth SERVER_TREE [FILES...]\n");
        return 2;
    }
    std::printf(
        "%6s %9s %8s %12s %8s %12s %10s %9s %8s\n", "files", "answers", "threads", "descriptors",
        "threads", "descriptors", "start KiB", "peak KiB", "seconds");
    std::printf("%6s %9s %8s %12s %8s %12s\n", "", "", "(most)", "(most)", "(end)", "(end)");
    for (const int files : fileCounts(arguments.mid(1))) {
        publish(arguments.constFirst(), files);
        reportRun(files);
    }
    return 0;
}
