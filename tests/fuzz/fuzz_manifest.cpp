// Feeds broken manifests to the launcher's reading code and to `check`. An
// input that crashes or takes too long is named, so that `--first N --inputs 1`
// shows it again.

#include "publisher/check.h"
#include "tests/fuzz/brokenmanifest.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/time.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// Generous, since the numbers up to a far entry are all walked. Of the clock on
// the wall there is more: other programs may want the machine as well.
constexpr int processorSecondsPerInput = 20;
constexpr unsigned secondsPerInput = 200;
constexpr quint32 inputsBetweenReports = 50'000;

// Read by the signal handler.
volatile sig_atomic_t currentInput = 0;

/// Only calls that are allowed in a handler.
void nameInput(int signal)
{
    char digits[16];
    int length = 0;
    for (int rest = currentInput; length == 0 || rest > 0; rest /= 10)
        digits[sizeof digits - 1 - static_cast<std::size_t>(length++)]
            = static_cast<char>('0' + rest % 10);
    const auto say = [](const char* text, std::size_t size) {
        [[maybe_unused]] const auto written = write(STDERR_FILENO, text, size);
    };
    const char* what
        = signal == SIGALRM || signal == SIGPROF ? "took too long: input " : "crashed: input ";
    say(what, std::strlen(what));
    say(digits + sizeof digits - length, static_cast<std::size_t>(length));
    say("\n", 1);
    std::signal(signal, SIG_DFL);
    _exit(1);
}

struct Options {
    quint32 series;
    quint32 first;
    quint32 inputs;
    qint64 seconds;
    bool show;
};

/// Everything that the launcher asks a manifest for, and builds from it.
void readAsLauncher(const QString& path, QChar separator)
{
    // The numbers between are handled alike, and walking them all is slow.
    constexpr qint64 mostEntries = 2'000;
    const PatchManifest manifest(path, separator);
    const PatchLayout layout(u"/settings"_s, u"/cache"_s, separator);
    const qint64 count = std::min(manifest.entryCount(), mostEntries);
    for (qint64 n = 0; n <= count; ++n) {
        const PatchManifestEntry entry = manifest.entry(n);
        manifest.hash(n);
        layout.cachedFolder(u"live"_s, entry);
        layout.reconciledFolder(u"/client"_s, u"live"_s, entry);
        PatchLayout::patchFile(u"https://server/"_s, u"live"_s, entry).toString();
    }
}

qsizetype inspect(const QString& path, quint32 index)
{
    CheckedPlayers players;
    players.realms = 1 + static_cast<int>(index % 4);
    players.separator = index % 2 == 0 ? u'\\' : u'/';
    readAsLauncher(path, players.separator);
    const CheckedManifest manifest
        = Check::read(path, u"patch.ini"_s, index % 3 == 0 ? u"test"_s : u"live"_s, players);
    const QList<Effect> run = CheckEffects::firstRun(manifest, players);
    qsizetype characters = 0;
    const QList<Finding> findings
        = Check::findings(manifest, players, run, index % 5 == 0 ? u"/"_s : QString());
    for (const Finding& finding : findings)
        characters += Findings::toText(finding).size();
    return characters;
}

/// The program ends when this time is over; 0 lifts the limits.
void limitTime(int processorSeconds, unsigned seconds)
{
    const itimerval timer{ .it_interval = {}, .it_value = { processorSeconds, 0 } };
    setitimer(ITIMER_PROF, &timer, nullptr);
    alarm(seconds);
}

/// Every input has a path of its own: the settings layer keeps what it has read
/// by path.
void feed(const QString& folder, quint32 series, quint32 index)
{
    const QString path = folder + u'/' + QString::number(index) + ".ini"_L1;
    QFile file(path);
    const QByteArray content = brokenManifest(series, index);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write %s", qPrintable(path));
    file.close();
    currentInput = static_cast<int>(index);
    limitTime(processorSecondsPerInput, secondsPerInput);
    inspect(path, index);
    limitTime(0, 0);
    file.remove();
}

Options readOptions()
{
    QCommandLineParser parser;
    parser.addOptions({
        { u"inputs"_s, u"Number of inputs."_s, u"N"_s, u"1000000000"_s },
        { u"seconds"_s, u"Ends after this time."_s, u"S"_s, u"1000000"_s },
        { u"first"_s, u"Number of the first input."_s, u"N"_s, u"0"_s },
        { u"series"_s, u"Another series has other inputs."_s, u"N"_s, u"1"_s },
        { u"show"_s, u"Writes the inputs to the standard output."_s },
    });
    parser.addHelpOption();
    parser.process(*QCoreApplication::instance());
    return { parser.value(u"series"_s).toUInt(), parser.value(u"first"_s).toUInt(),
             parser.value(u"inputs"_s).toUInt(), parser.value(u"seconds"_s).toLongLong(),
             parser.isSet(u"show"_s) };
}

/// Broken values make the toolkit complain a million times.
void ignore(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    Q_UNUSED(context)
    if (type == QtFatalMsg)
        std::fprintf(stderr, "%s\n", qPrintable(message));
}

void report(quint32 inputs, const QElapsedTimer& clock)
{
    std::printf("%u inputs in %.1f s\n", inputs, static_cast<double>(clock.elapsed()) / 1000);
    std::fflush(stdout);
}

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    const Options options = readOptions();
    qInstallMessageHandler(ignore);
    for (const int signal : { SIGSEGV, SIGABRT, SIGFPE, SIGBUS, SIGILL, SIGALRM, SIGPROF })
        std::signal(signal, nameInput);
    const QTemporaryDir folder;
    QElapsedTimer clock;
    clock.start();
    quint32 done = 0;
    while (done < options.inputs && clock.elapsed() < options.seconds * 1000) {
        if (options.show)
            std::fputs(brokenManifest(options.series, options.first + done).constData(), stdout);
        feed(folder.path(), options.series, options.first + done);
        if (++done % inputsBetweenReports == 0)
            report(done, clock);
    }
    report(done, clock);
    return done > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
