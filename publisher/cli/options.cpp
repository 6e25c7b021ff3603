#include "publisher/cli/options.h"

#include "publisher/common/placeholder.h"

#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>
#include <QThread>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace Options {

void addServer(QCommandLineParser& parser)
{
    parser.addPositionalArgument(u"SERVER"_s, u"Folder that the web server serves."_s);
}

void addKind(QCommandLineParser& parser, const QString& description)
{
    parser.addOption({ u"kind"_s, description, u"KIND"_s, u"live"_s });
}

void addPlayers(QCommandLineParser& parser, const QString& descriptionOfRealms)
{
    parser.addOptions({
        { u"realms"_s, descriptionOfRealms, u"NUMBER"_s, u"16"_s },
        { u"separator"_s, u"Between the folders on players' systems: \\ (Windows) or /."_s,
          u"CHARACTER"_s, u"\\"_s },
    });
}

void addPublishing(QCommandLineParser& parser)
{
    parser.addOptions({
        { { u"n"_s, u"dry-run"_s }, u"Tells the difference and writes nothing."_s },
        { { u"m"_s, u"message"_s }, u"Stands in the history."_s, u"TEXT"_s },
        { u"yes-remove"_s,
          u"Confirms that this many files are dropped from what is live; asked for where that is "
          "more than a tenth."_s,
          u"NUMBER"_s, u"0"_s },
        { u"rehash"_s,
          u"Reads every file, even where size and dates say that it has not changed."_s },
        { u"jobs"_s, u"Works on this many files at once."_s, u"NUMBER"_s,
          QString::number(QThread::idealThreadCount()) },
        { u"no-flush"_s,
          u"Does not wait until everything is on the disk. Faster, but a power cut soon "
          "afterwards can leave a broken publication."_s },
    });
}

} // namespace Options

OptionReader::OptionReader(const QCommandLineParser& acceptedLine)
    : parser(acceptedLine)
{
}

QString OptionReader::folder(qsizetype argument) const
{
    return QDir::cleanPath(QFileInfo(parser.positionalArguments().at(argument)).absoluteFilePath());
}

bool OptionReader::isSet(const QString& option) const
{
    return parser.isSet(option);
}

QString OptionReader::text(const QString& option) const
{
    return parser.value(option);
}

Kind OptionReader::kind()
{
    const std::optional<Kind> kind = ServerLayout::kindOf(text(u"kind"_s));
    if (!kind)
        complain(u"--kind is live or test"_s);
    return kind.value_or(Kind::Live);
}

QChar OptionReader::separator()
{
    const QString given = text(u"separator"_s);
    if (given != "/"_L1 && given != R"(\)"_L1)
        complain(uR"(--separator is / or \)"_s);
    return given == "/"_L1 ? u'/' : u'\\';
}

int OptionReader::realms()
{
    return number(u"realms"_s, 1, mostRealms);
}

qsizetype OptionReader::confirmedDrops()
{
    bool isNumber = false;
    const qsizetype drops = text(u"yes-remove"_s).toLongLong(&isNumber);
    if (!isNumber || drops < 0)
        complain(u"--yes-remove is the number of files that are dropped"_s);
    return drops;
}

int OptionReader::number(const QString& option, int least, int most)
{
    bool isNumber = false;
    const int given = text(option).toInt(&isNumber);
    if (isNumber && given >= least && given <= most)
        return given;
    const QString end = most < std::numeric_limits<int>::max() ? u" to %1"_s.arg(most) : QString();
    complain(u"--%1 is a number from %2%3"_s.arg(option).arg(least).arg(end));
    return least;
}

QString OptionReader::fault() const
{
    return firstFault;
}

void OptionReader::complain(const QString& sentence)
{
    if (firstFault.isEmpty())
        firstFault = sentence;
}

} // namespace Publisher
