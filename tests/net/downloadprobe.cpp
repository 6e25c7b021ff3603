#include "tests/net/downloadprobe.h"

#include "tests/support/applicationfolder.h"
#include "tests/support/patience.h"

#include <QFileInfo>
#include <QNetworkRequest>
#include <QTest>

using namespace TestSupport;

namespace {

QString outcomeText(
    const QString& end, qsizetype flagged, qsizetype hidden, const QString& target,
    const QString& temporary)
{
    return QString("%1, flag %2, hidden %3, target %4, temporary %5")
        .arg(end)
        .arg(flagged)
        .arg(hidden)
        .arg(target, temporary);
}

QString quoted(const QByteArray& content)
{
    return '\'' + QString::fromUtf8(content) + '\'';
}

QString contentOf(const QString& path)
{
    if (!QFileInfo::exists(path))
        return "none";
    return QFileInfo(path).isDir() ? "folder" : quoted(readFile(path));
}

} // namespace

QString loggedHeader(const QByteArray& name)
{
    // A request keeps its headers as a reply does.
    QNetworkRequest request;
    request.setRawHeader(name, "1");
    return '"' + QString::fromLatin1(request.rawHeaderList().constFirst()) + '"';
}

QUrl onDownloadHost(const QString& path)
{
    return QUrl("https://download.tarnwick.example" + path);
}

QString endedWritten(const QByteArray& content)
{
    return outcomeText("fileWriteFinished", 1, 1, quoted(content), "none");
}

QString endedNotModified(const QByteArray& content)
{
    return outcomeText("notModiefied", 1, 1, quoted(content), "none");
}

DownloadProbe::DownloadProbe(QString name)
    : folder(ApplicationFolder::path("target"))
    , fileName(std::move(name))
{
    connect(&receiver, &ProgressReceiver::shown, this, &DownloadProbe::observe);
    connect(&receiver, &ProgressReceiver::hid, this, [this] { note("hide"); });
    connect(&network, &ReplyWatcher::issued, this, [this] { note("request"); });
    connect(&flag, &SignalBoolHelperClass::changedToTrue, this, [this] { note("flag"); });
}

bool DownloadProbe::start(const QUrl& url)
{
    return FileDownloader::download(useTls, &receiver, &flag, url, timestamp, folder, fileName);
}

bool DownloadProbe::startPlain(const QUrl& url)
{
    return FileDownloader::downloadPlain(&receiver, &flag, url, folder, fileName);
}

bool DownloadProbe::run(const QUrl& url)
{
    start(url);
    return QTest::qWaitFor([this] { return flag.state(); }, patience);
}

bool DownloadProbe::runPlain(const QUrl& url)
{
    startPlain(url);
    return QTest::qWaitFor([this] { return flag.state(); }, patience);
}

QString DownloadProbe::target() const
{
    return folder + '/' + fileName;
}

QString DownloadProbe::temporary() const
{
    return target() + "-new";
}

QString DownloadProbe::outcome() const
{
    QString end = "unfinished";
    for (const QString& event : events) {
        if (event == "fileWriteFinished" || event == "notModiefied")
            end = end == "unfinished" ? event : end + " and " + event;
    }
    return outcomeText(
        end, events.count("flag"), events.count("hide"), contentOf(target()),
        contentOf(temporary()));
}

void DownloadProbe::observe(QObject* shown)
{
    note("show");
    downloader = shown;
    auto* observed = qobject_cast<FileDownloader*>(shown);
    if (observed == nullptr)
        qFatal("the display was not shown by a downloader");
    connect(observed, &FileDownloader::downloaded, this, [this] { note("downloaded"); });
    connect(observed, &FileDownloader::filePreWriteFinished, this, [this] {
        note("filePreWriteFinished");
    });
    connect(
        observed, &FileDownloader::fileWriteFinished, this, [this] { note("fileWriteFinished"); });
    connect(observed, &FileDownloader::notModiefied, this, [this] { note("notModiefied"); });
}

void DownloadProbe::note(const QString& event)
{
    events.append(event);
}
