#include "tests/fuzz/fuzzloop.h"

#include "tests/fuzz/mutator.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/time.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

#ifdef __SANITIZE_ADDRESS__
// Otherwise a finding ends the program past the handler that names the input. A
// list that claims thousands of millions of entries asks for more memory than there
// is; outside, too, it is told so, and the settings layer takes it for empty.
extern "C" const char* __asan_default_options();
const char* __asan_default_options()
{
    return "abort_on_error=1:allocator_may_return_null=1";
}
#endif

namespace {

// What is told by it is a loop without an end, not a slow input: the slowest take
// a second. The clock on the wall says nothing, since other programs may want the
// machine as well.
constexpr int processorSecondsPerInput = 100;
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
    const char* what = signal == SIGPROF ? "does not end: input " : "crashed: input ";
    say(what, std::strlen(what));
    say(digits + sizeof digits - length, static_cast<std::size_t>(length));
    say("\n", 1);
    std::signal(signal, SIG_DFL);
    _exit(1);
}

void onFailure(void (*handler)(int))
{
    for (const int signal : { SIGSEGV, SIGABRT, SIGFPE, SIGBUS, SIGILL, SIGPROF })
        std::signal(signal, handler);
}

struct Options {
    quint32 series;
    quint32 first;
    quint32 inputs;
    qint64 seconds;
    bool show;
};

/// The program ends when it has worked for so long; 0 lifts the limit.
void limitWork(int processorSeconds)
{
    const itimerval timer{ .it_interval = {}, .it_value = { processorSeconds, 0 } };
    setitimer(ITIMER_PROF, &timer, nullptr);
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

QList<QByteArray> readCorpus(const QString& name)
{
    QList<QByteArray> inputs;
    const QDir folder(QStringLiteral(HALDEN_FUZZ_CORPUS) + u'/' + name);
    const QStringList names = folder.entryList(QDir::Files, QDir::Name);
    for (const QString& entry : names) {
        QFile file(folder.filePath(entry));
        if (!file.open(QIODevice::ReadOnly))
            qFatal("cannot read %s", qPrintable(file.fileName()));
        inputs.append(file.readAll());
    }
    if (inputs.isEmpty())
        qFatal("there is no corpus in %s", qPrintable(folder.path()));
    return inputs;
}

QByteArray
makeInput(const Fuzzer& fuzzer, const QList<QByteArray>& corpus, quint32 series, quint32 index)
{
    if (index < corpus.size())
        return corpus.at(index);
    if (index % 2 == 0)
        return fuzzer.makeUp(series, index);
    Mutator chance(series, index);
    QByteArray input = chance.oneOf(corpus);
    chance.damageAtWill(input);
    return input;
}

void runWatched(const Fuzzer& fuzzer, const QByteArray& input, quint32 index)
{
    currentInput = static_cast<int>(index);
    limitWork(processorSecondsPerInput);
    fuzzer.feed(input, index);
    limitWork(0);
}

} // namespace

int runFuzzer(const Fuzzer& fuzzer)
{
    const Options options = readOptions();
    const QList<QByteArray> corpus = readCorpus(fuzzer.corpus);
    qInstallMessageHandler(ignore);
    onFailure(nameInput);
    QElapsedTimer clock;
    clock.start();
    quint32 done = 0;
    while (done < options.inputs && clock.elapsed() < options.seconds * 1000) {
        const quint32 index = options.first + done;
        const QByteArray input = makeInput(fuzzer, corpus, options.series, index);
        if (options.show)
            std::fwrite(input.constData(), 1, static_cast<std::size_t>(input.size()), stdout);
        runWatched(fuzzer, input, index);
        if (++done % inputsBetweenReports == 0)
            report(done, clock);
    }
    // What is found now is no input's fault.
    onFailure(SIG_DFL);
    report(done, clock);
    return done > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
