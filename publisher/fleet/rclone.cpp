#include "publisher/fleet/rclone.h"

#include <QEventLoop>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QVersionNumber>

#ifdef Q_OS_LINUX
#include <csignal>
#include <sys/prctl.h>
#endif

using namespace Qt::StringLiterals;

namespace Publisher::Rclone {

namespace {

constexpr int exitDirectoryNotFound = 3;
constexpr int exitFileNotFound = 4;

QVersionNumber oldest()
{
    return { 1, 60 };
}

/// What it says while it runs, a JSON object for each line.
class Sayings {
public:
    explicit Sayings(const Listener& listening)
        : listener(listening)
    {
    }

    void add(const QByteArray& bytes)
    {
        rest += bytes;
        for (qsizetype end = rest.indexOf('\n'); end >= 0; end = rest.indexOf('\n')) {
            hear(rest.first(end));
            rest.remove(0, end + 1);
        }
    }

    QString lastError;

private:
    void hear(const QByteArray& line)
    {
        const QJsonObject saying = QJsonDocument::fromJson(line).object();
        const QString level = saying.value("level"_L1).toString();
        const QString text = saying.value("msg"_L1).toString().simplified();
        if (saying.isEmpty())
            hearPlain(QString::fromUtf8(line).simplified());
        else if (level == "error"_L1 || level == "fatal"_L1 || level == "critical"_L1)
            lastError = nameOf(saying) + text;
        else if (listener.arrived && text.contains("Copied ("_L1))
            listener.arrived(saying.value("object"_L1).toString());
        const QJsonObject stats = saying.value("stats"_L1).toObject();
        if (listener.progress && !stats.isEmpty())
            listener.progress(
                stats.value("bytes"_L1).toInteger(), stats.value("transfers"_L1).toInteger());
    }

    /// Before it knows its options, or when it dies, it writes as to people. What
    /// it sums up tells less than what it has said of a file.
    void hearPlain(const QString& line)
    {
        static const QRegularExpression stamp(u"^\\d{4}/\\d\\d/\\d\\d \\d\\d:\\d\\d:\\d\\d "_s);
        if (lastError.isEmpty() && !line.isEmpty())
            lastError = QString(line).remove(stamp);
    }

    static QString nameOf(const QJsonObject& saying)
    {
        const QString object = saying.value("object"_L1).toString();
        return object.isEmpty() ? QString() : object + ": "_L1;
    }

    const Listener& listener;
    QByteArray rest;
};

/// What was begun must not go on behind the back of the next push.
void endWithStarter(QProcess& process)
{
#ifdef Q_OS_LINUX
    process.setChildProcessModifier([] { prctl(PR_SET_PDEATHSIG, SIGKILL); });
#else
    Q_UNUSED(process)
#endif
}

QString withoutFullStop(QString text)
{
    while (text.endsWith(u'.'))
        text.chop(1);
    return text;
}

QString packageAdvice()
{
    return u"install Debian's package rclone, or a later one from the makers of rclone"_s;
}

QStringList commonOptions(const Listener& listener)
{
    QStringList options{ u"--use-json-log"_s, u"--ask-password=false"_s, u"--copy-links"_s,
                         u"--stats=500ms"_s, u"--stats-log-level=NOTICE"_s };
    if (listener.arrived)
        options.append(u"--log-level=INFO"_s);
    return options;
}

} // namespace

bool Outcome::isNothingThere() const
{
    return exitCode == exitDirectoryNotFound || exitCode == exitFileNotFound;
}

Outcome run(const QStringList& arguments, const Listener& listener)
{
    QProcess process;
    endWithStarter(process);
    process.setStandardInputFile(QProcess::nullDevice());
    Sayings sayings(listener);
    QObject::connect(&process, &QProcess::readyReadStandardError, &process, [&] {
        sayings.add(process.readAllStandardError());
    });
    QEventLoop loop;
    QObject::connect(&process, &QProcess::stateChanged, &loop, [&](QProcess::ProcessState state) {
        if (state == QProcess::NotRunning)
            loop.quit();
    });
    process.start(u"rclone"_s, commonOptions(listener) + arguments);
    if (process.state() != QProcess::NotRunning)
        loop.exec();
    Outcome outcome;
    if (process.error() == QProcess::FailedToStart) {
        outcome.error = process.errorString();
        return outcome;
    }
    sayings.add(process.readAllStandardError() + '\n');
    outcome.output = process.readAllStandardOutput();
    outcome.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    outcome.error = sayings.lastError.isEmpty() ? u"it ended with code %1"_s.arg(outcome.exitCode)
                                                : withoutFullStop(sayings.lastError);
    return outcome;
}

Problem fault()
{
    const Outcome outcome = run({ u"version"_s });
    if (!outcome.isFine())
        return u"rclone, which copies to the servers, cannot be started: %1"_s.arg(packageAdvice());
    static const QRegularExpression pattern(u"rclone v([0-9.]+)"_s);
    const QString text = pattern.match(QString::fromUtf8(outcome.output)).captured(1);
    if (QVersionNumber::fromString(text) >= oldest())
        return {};
    return u"this machine's rclone is %1, and %2 or later is needed: %3"_s.arg(
        text.isEmpty() ? u"of no version that it tells"_s : text, oldest().toString(),
        packageAdvice());
}

Problem listRemotes(QStringList& names)
{
    const Outcome outcome = run({ u"listremotes"_s });
    if (!outcome.isFine())
        return u"rclone cannot list its remotes: %1. Mend its configuration with `rclone "
               "config`"_s.arg(outcome.error);
    names = QString::fromUtf8(outcome.output).split(u'\n', Qt::SkipEmptyParts);
    return {};
}

} // namespace Publisher::Rclone
