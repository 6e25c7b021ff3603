#include "publisher/probe/probe.h"

#include "publisher/common/progress.h"
#include "publisher/probe/chainrules.h"
#include "publisher/probe/daterules.h"
#include "publisher/probe/servedmanifest.h"
#include "publisher/probe/serverrules.h"
#include "update/launcherfiles.h"
#include "updater/programheader.h"

#include <QEventLoop>

#include <utility>

using namespace Qt::StringLiterals;

namespace Publisher {

using Body = Inquiry::Body;

namespace {

/// So many at most, with about as many left out between any two of them.
QList<PatchFile> spreadOver(const QList<PatchFile>& files, qsizetype most)
{
    if (files.size() <= most)
        return files;
    QList<PatchFile> some;
    for (qsizetype i = 0; i < most; ++i)
        some.append(files.at(i * files.size() / most));
    return some;
}

} // namespace

Probe::Probe(ProbeRequest request)
    : asked(std::move(request))
    , inquiry(asked.secondsOfSilence)
    , trusted(trustedCertificates())
    , comparison(asked.tree)
    , onRecord(asked.record)
{
    if (asked.connect)
        inquiry.connectTo(asked.baseUrl.host(), *asked.connect);
    connect(&inquiry, &Inquiry::received, this, &Probe::received);
    connect(&inquiry, &Inquiry::finished, this, &Probe::finished);
}

QList<Finding> Probe::findings() const
{
    return found;
}

std::optional<qint64> Probe::certificateDays() const
{
    return inquiry.certificateDays();
}

QString Probe::certificate() const
{
    return inquiry.session() ? inquiry.session()->fingerprint : QString();
}

QList<SeenCertificate> Probe::roots() const
{
    return ChainRules(inquiry.certificates(asked.baseUrl.host()), trusted).roots();
}

qint64 Probe::filesAsked() const
{
    return files;
}

bool Probe::isReached() const
{
    return isServerReached;
}

QMap<QString, SeenFile> Probe::seen() const
{
    return seenFiles;
}

QString Probe::error() const
{
    return trouble;
}

void Probe::expect(qint64 count)
{
    files += count;
    emit filesFound(count);
}

void Probe::add(const std::optional<Finding>& finding)
{
    if (finding)
        found.append(*finding);
}

QUrl Probe::address(const QString& name) const
{
    return QUrl(asked.baseUrl.toString() + name, QUrl::TolerantMode);
}

void Probe::askAnew(const QUrl& url, Body body, const Inquiry::Handler& handler)
{
    Inquiry::Question question{ url, DateRules::withoutCopy(), body, handler };
    question.sha256 = onRecord.hasRecord();
    inquiry.ask(std::move(question));
}

bool Probe::isUsable(const AskedFile& file, const ProbeAnswer& answer)
{
    const AnswerRules::Verdict verdict = AnswerRules::judge(file, answer);
    add(verdict.finding);
    return verdict.isUsable;
}

void Probe::note(const QUrl& url, const ProbeAnswer& answer)
{
    const QString path = url.path().sliced(asked.baseUrl.path().size());
    seenFiles.insert(
        path, { answer.toTheEnd ? answer.md5 : QByteArray(), answer.length, answer.lastModified });
}

void Probe::start()
{
    if (const auto finding = ServerRules::address(asked.baseUrl)) {
        add(finding);
        QMetaObject::invokeMethod(this, &Probe::finished, Qt::QueuedConnection);
        return;
    }
    askAnew(address(liveManifestFileName), Body::Beginning, [this](const ProbeAnswer& answer) {
        takeFirstAnswer(answer);
    });
}

void Probe::judgeChain(const QString& host)
{
    found += ChainRules(inquiry.certificates(host), trusted)
                 .findings(host, QDateTime::currentDateTimeUtc());
}

void Probe::takeFirstAnswer(const ProbeAnswer& answer)
{
    if (answer.status == 0) {
        explainFailure(answer);
        return;
    }
    isServerReached = true;
    serverTime = answer.date.isValid() ? answer.date.toUTC() : QDateTime::currentDateTimeUtc();
    if (const auto days = certificateDays())
        add(ServerRules::certificateDays(asked.baseUrl.host(), *days, asked.daysOfCertificate));
    judgeChain(asked.baseUrl.host());
    askManifest(Kind::Live, ServerLayout::manifestName(Kind::Live));
    if (wantsManifest(asked.test, ServerLayout::manifestName(Kind::Test)))
        askManifest(Kind::Test, ServerLayout::manifestName(Kind::Test));
    if (wantsManifest(asked.next, ServerLayout::nextManifestName()))
        askManifest(Kind::Live, ServerLayout::nextManifestName());
    askInfo();
    askLauncherFile(launcherFileName);
    askLauncherFile(updaterFileName);
    askForMissing(u"halden-probe-asks-for-what-is-not-there.exe"_s);
    askForMissing(
        ServerLayout::kindFolder(Kind::Live) + u"/halden-probe-asks-for-what-is-not-there"_s);
}

/// Tells a certificate from a version, and both from a server that is away.
void Probe::explainFailure(const ProbeAnswer& failure)
{
    const QString host = asked.baseUrl.host();
    if (const auto untrusted = ServerRules::trust(host, failure)) {
        isServerReached = true;
        add(untrusted);
    } else if (const auto away = ServerRules::presence(host, failure, asked.secondsOfSilence)) {
        add(away);
    } else {
        askForOldVersions(failure.error);
    }
}

void Probe::askForOldVersions(const QString& error)
{
    inquiry.ask({ address(liveManifestFileName), DateRules::withoutCopy(), Body::Beginning,
                  [this, error](const ProbeAnswer& answer) {
                      isServerReached = answer.status != 0;
                      add(ServerRules::tlsVersion(asked.baseUrl.host(), answer));
                      if (!isServerReached)
                          askWithoutTls(error);
                  },
                  Inquiry::Tls::AnyVersion });
}

/// A server that answers plain http where TLS is spoken looks like none at all.
void Probe::askWithoutTls(const QString& error)
{
    constexpr int portOfHttps = 443;
    QUrl plain = address(liveManifestFileName);
    plain.setPort(plain.port(portOfHttps));
    plain.setScheme(u"http"_s);
    askAnew(plain, Body::Beginning, [this, plain, error](const ProbeAnswer& answer) {
        isServerReached = answer.status != 0;
        add(ServerRules::plainHttp(plain, answer, error));
    });
}

bool Probe::wantsManifest(bool isAskedFor, const QString& name) const
{
    return isAskedFor || onRecord.knows(name);
}

void Probe::askManifest(Kind kind, const QString& name)
{
    askAnew(address(name), Body::Whole, [this, kind, name](const ProbeAnswer& answer) {
        takeManifest(kind, name, answer);
    });
}

void Probe::takeManifest(Kind kind, const QString& name, const ProbeAnswer& answer)
{
    if (!isUsable({ Served::Manifest, name }, answer))
        return;
    note(address(name), answer);
    add(DateRules::ahead(name, answer, QDateTime::currentDateTimeUtc()));
    add(DateRules::caching(name, answer));
    add(comparison.manifest(name, answer));
    add(onRecord.file(name, answer));
    askForCopied(name, { DateRules::farAhead(), serverTime });
    askFilesOf(kind, name, answer.body);
}

/// As launchers ask whose copies have these dates, until one of them gets none.
void Probe::askForCopied(const QString& name, const QList<QDateTime>& dates)
{
    if (dates.isEmpty())
        return;
    const QDateTime& date = dates.constFirst();
    inquiry.ask({ address(name), date, Body::Beginning,
                  [this, name, dates, date](const ProbeAnswer& answer) {
                      if (const auto stuck = DateRules::copiedManifest(name, date, answer))
                          add(stuck);
                      else if (isUsable({ Served::Manifest, name }, answer))
                          askForCopied(name, dates.sliced(1));
                  } });
}

void Probe::askFilesOf(Kind kind, const QString& name, const QByteArray& manifest)
{
    const ServedManifest served = ServedManifest::read(kind, name, manifest);
    if (!served.error.isEmpty())
        trouble = served.error;
    found += served.findings + onRecord.dropped(name, served.files);
    const QList<PatchFile> wanted = spreadOver(served.files, asked.mostPatchFiles);
    expect(wanted.size());
    for (const PatchFile& file : wanted)
        askPatchFile(file, serverTime);
}

/// Asked for without a date that matters, so nothing is compared with it.
void Probe::askInfo()
{
    if (asked.infoUrl.isEmpty())
        return;
    expect(1);
    askAnew(asked.infoUrl, Body::Beginning, [this](const ProbeAnswer& answer) {
        emit fileDone();
        takeInfo(answer);
    });
}

void Probe::takeInfo(const ProbeAnswer& answer)
{
    const QString subject = asked.infoUrl.path();
    if (asked.infoUrl.host() != asked.baseUrl.host())
        judgeChain(asked.infoUrl.host());
    if (const auto untrusted = ServerRules::trust(asked.infoUrl.host(), answer))
        add(untrusted);
    else if (isUsable({ Served::InfoText, subject }, answer))
        add(DateRules::caching(subject, answer));
}

void Probe::askLauncherFile(const QString& name)
{
    expect(1);
    // One of several servers is held against the others.
    const bool compares
        = asked.deep || comparison.hasTree() || onRecord.hasRecord() || asked.connect;
    Inquiry::Question question{ address(name), DateRules::withoutCopy(),
                                compares ? Body::Hash : Body::Beginning,
                                [this, name](const ProbeAnswer& answer) {
                                    emit fileDone();
                                    takeLauncherFile(name, answer);
                                } };
    question.beginning = Updater::programHeadSize;
    question.sha256 = onRecord.hasRecord();
    inquiry.ask(std::move(question));
}

void Probe::takeLauncherFile(const QString& name, const ProbeAnswer& answer)
{
    if (!isUsable({ Served::LauncherFile, name }, answer))
        return;
    note(address(name), answer);
    add(DateRules::ahead(name, answer, QDateTime::currentDateTimeUtc()));
    add(DateRules::caching(name, answer));
    askDates(name, answer);
    add(AnswerRules::program(name, answer));
    add(comparison.launcherFile(name, answer));
    add(onRecord.file(name, answer));
}

void Probe::askForMissing(const QString& name)
{
    askAnew(address(name), Body::Beginning, [this, name](const ProbeAnswer& answer) {
        add(AnswerRules::missingFile(name, answer));
    });
}

void Probe::askDates(const QString& name, const ProbeAnswer& answer)
{
    inquiry.ask({ address(name), DateRules::ofLaterCopy(answer, serverTime), Body::Beginning,
                  [this, name](const ProbeAnswer& again) {
                      add(DateRules::laterCopy(name, again));
                  } });
    if (!answer.lastModified.isValid())
        return;
    inquiry.ask({ address(name), answer.lastModified.toUTC(), Body::Beginning,
                  [this, name](const ProbeAnswer& again) {
                      add(DateRules::exactCopy(name, again));
                  } });
}

void Probe::askPatchFile(const PatchFile& file, const QDateTime& ifModifiedSince)
{
    Inquiry::Question question{ file.address(asked.baseUrl), ifModifiedSince,
                                asked.deep ? Body::Hash : Body::Beginning,
                                [this, file, ifModifiedSince](const ProbeAnswer& answer) {
                                    takePatchFile(file, ifModifiedSince, answer);
                                } };
    question.sha256 = asked.deep && onRecord.hasRecord();
    inquiry.ask(std::move(question));
}

void Probe::takePatchFile(
    const PatchFile& file, const QDateTime& ifModifiedSince, const ProbeAnswer& answer)
{
    const QUrl url = file.address(asked.baseUrl);
    const auto notModified = DateRules::damagedCopy(file, url, answer);
    if (notModified && ifModifiedSince != DateRules::withoutCopy()) {
        add(notModified);
        askPatchFile(file, DateRules::withoutCopy());
        return;
    }
    emit fileDone();
    if (!isUsable({ Served::PatchFile, file.manifest(), file.number }, answer))
        return;
    note(url, answer);
    add(comparison.patchFile(file, url, answer));
    add(onRecord.patchFile(file, answer));
    if (asked.deep)
        add(AnswerRules::hash(file, url, answer));
}

void askAll(Probe& probe, Progress& progress)
{
    QEventLoop loop;
    QObject::connect(&probe, &Probe::filesFound, &loop, [&](qint64 count) {
        progress.raiseTotal({ count, 0 });
    });
    QObject::connect(
        &probe, &Probe::received, &loop, [&](qint64 bytes) { progress.addBytes(bytes); });
    QObject::connect(&probe, &Probe::fileDone, &loop, [&] { progress.addFile(); });
    QObject::connect(&probe, &Probe::finished, &loop, &QEventLoop::quit);
    probe.start();
    loop.exec();
}

} // namespace Publisher
