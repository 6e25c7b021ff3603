#include "publisher/probe/probe.h"

#include "app/constants.h"
#include "publisher/check/checkentries.h"
#include "publisher/check/checkreading.h"
#include "publisher/common/dates.h"
#include "publisher/common/filework.h"
#include "publisher/common/placeholder.h"
#include "publisher/common/programfault.h"
#include "publisher/common/webpage.h"
#include "update/launcherfiles.h"
#include "update/patchlayout.h"
#include "updater/programheader.h"

#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>
#include <QNetworkReply>
#include <QSslConfiguration>
#include <QSslError>
#include <QTemporaryFile>

#include <algorithm>
#include <memory>
#include <utility>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

constexpr int mostAtOnce = 4;
constexpr int mostRedirects = 5;
constexpr qint64 beginningSize = 1024;

constexpr int statusOk = 200;
constexpr int statusNotModified = 304;
constexpr int statusNotFound = 404;
constexpr int statusGone = 410;

/// What a launcher without a copy of its own sends.
const QDateTime& oldDate()
{
    static const QDateTime date = QDateTime::fromString(u"2000-01-01T10:15:00Z", Qt::ISODate);
    return date;
}

/// Add-ons bring web pages of their own, which are no errors.
bool isNamedLikePage(const QUrl& url)
{
    const QString name = url.fileName().toLower();
    return name.endsWith(".html"_L1) || name.endsWith(".htm"_L1);
}

bool isMissing(int status)
{
    return status == statusNotFound || status == statusGone;
}

bool isRedirect(int status)
{
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

QNetworkRequest makeRequest(
    const QUrl& url, const QDateTime& ifModifiedSince, QSsl::SslProtocol protocol, int seconds)
{
    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::UserAgentHeader, applicationDisplayName);
    if (ifModifiedSince.isValid())
        request.setHeader(QNetworkRequest::IfModifiedSinceHeader, ifModifiedSince);
    request.setTransferTimeout(1000 * seconds);
    // The same offer that the launcher's network layer makes; made by hand, the
    // bytes arrive as they were sent.
    request.setRawHeader("Accept-Encoding", "gzip, deflate");
    request.setAttribute(
        QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
    tls.setProtocol(protocol);
    if (protocol == QSsl::AnyProtocol) {
        // Or the toolkit would keep the old versions out on its own.
        tls.setBackendConfigurationOption("MinProtocol", QByteArray("TLSv1"));
        tls.setBackendConfigurationOption("CipherString", QByteArray("ALL:@SECLEVEL=0"));
    }
    request.setSslConfiguration(tls);
    return request;
}

void takeHeaders(const QNetworkReply& reply, ProbeAnswer& answer)
{
    answer.status = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    static_cast<AnswerHeaders&>(answer) = AnswerHeaders::read(reply.rawHeaderPairs());
}

void takeError(const QNetworkReply& reply, ProbeAnswer& answer)
{
    const QNetworkReply::NetworkError error = reply.error();
    answer.error = reply.errorString();
    answer.isSilent
        = error == QNetworkReply::OperationCanceledError || error == QNetworkReply::TimeoutError;
    answer.isNobodyThere = error == QNetworkReply::ConnectionRefusedError
        || error == QNetworkReply::HostNotFoundError;
}

/// Takes in what has arrived of one body.
class BodyReader {
public:
    BodyReader(bool hashOnly, qint64 beginning)
        : hash(QCryptographicHash::Md5)
        , hashesOnly(hashOnly)
        , kept(beginning)
    {
    }

    qint64 read(QNetworkReply& reply)
    {
        const QByteArray bytes = reply.readAll();
        received += bytes.size();
        hash.addData(bytes);
        if (!hashesOnly || body.size() < kept)
            body += bytes;
        return bytes.size();
    }

    QCryptographicHash hash;
    QByteArray body;
    qint64 received = 0;

private:
    bool hashesOnly;
    qint64 kept;
};

} // namespace

Probe::Probe(ProbeRequest request)
    : asked(std::move(request))
{
}

QList<Finding> Probe::findings() const
{
    return found;
}

std::optional<qint64> Probe::certificateDays() const
{
    return days;
}

qint64 Probe::filesAsked() const
{
    return files;
}

bool Probe::isReached() const
{
    return isServerReached;
}

QString Probe::error() const
{
    return trouble;
}

void Probe::add(FindingId id, const QString& subject, const QString& text, qint64 entry)
{
    found.append({ id, subject, entry, text });
}

QUrl Probe::address(const QString& name) const
{
    return QUrl(asked.baseUrl.toString() + name, QUrl::TolerantMode);
}

void Probe::start()
{
    if (asked.baseUrl.scheme() != "https"_L1) {
        add(FindingId::ServerWithoutTls, asked.baseUrl.toString(),
            u"The address is not https: launchers do not ask there."_s);
        QMetaObject::invokeMethod(this, &Probe::finished, Qt::QueuedConnection);
        return;
    }
    ask({ address(liveManifestFileName), oldDate(), Body::Beginning,
          [this](const ProbeAnswer& answer) {
              takeFirstAnswer(answer);
          } });
}

void Probe::ask(Question question)
{
    waiting.enqueue(std::move(question));
    askOn();
}

void Probe::askOn()
{
    while (underWay < mostAtOnce && !waiting.isEmpty()) {
        ++underWay;
        send(waiting.dequeue());
    }
    if (underWay == 0)
        emit finished();
}

void Probe::send(const Question& question)
{
    QNetworkReply* reply = manager.get(
        makeRequest(question.url, question.ifModifiedSince, question.tls, asked.secondsOfSilence));
    const auto reader
        = std::make_shared<BodyReader>(question.body == Body::Hash, question.beginning);
    const auto answer = std::make_shared<ProbeAnswer>();
    answer->url = question.url;
    const auto read
        = [this, reply, reader, answer, body = question.body, beginning = question.beginning] {
              const qint64 bytes = reader->read(*reply);
              if (body == Body::Hash)
                  emit received(bytes);
              if (body != Body::Beginning || reader->received < beginning || reply->isFinished())
                  return;
              takeHeaders(*reply, *answer);
              reply->abort();
          };
    connect(reply, &QNetworkReply::readyRead, this, read);
    connect(reply, &QNetworkReply::encrypted, this, [this, reply] {
        takeCertificates(reply->sslConfiguration().peerCertificateChain());
    });
    connect(reply, &QNetworkReply::sslErrors, this, [answer](const QList<QSslError>& errors) {
        answer->certificateError = errors.value(0).errorString();
    });
    connect(reply, &QNetworkReply::finished, this, [this, reply, reader, answer, question] {
        const bool cutByUs = answer->status != 0;
        if (!cutByUs) {
            reader->read(*reply);
            takeHeaders(*reply, *answer);
            const bool served = answer->status != 0 && reply->error() >= 200;
            if (reply->error() != QNetworkReply::NoError && !served)
                takeError(*reply, *answer);
        }
        answer->toTheEnd = !cutByUs;
        answer->body = reader->body;
        answer->received = reader->received;
        answer->md5 = reader->hash.result().toHex();
        end(reply, question, *answer);
    });
}

void Probe::end(QNetworkReply* reply, const Question& question, ProbeAnswer answer)
{
    reply->deleteLater();
    --underWay;
    const QUrl target = question.url.resolved(answer.redirect);
    if (isRedirect(answer.status) && target.scheme() == "http"_L1) {
        answer.redirectsToPlain = true;
    } else if (isRedirect(answer.status) && question.redirects < mostRedirects) {
        Question onward = question;
        onward.url = target;
        ++onward.redirects;
        ask(std::move(onward));
        return;
    }
    question.handler(answer);
    askOn();
}

void Probe::takeFirstAnswer(const ProbeAnswer& answer)
{
    if (answer.status == 0) {
        explainFailure(answer);
        return;
    }
    isServerReached = true;
    serverTime = answer.date.isValid() ? answer.date.toUTC() : QDateTime::currentDateTimeUtc();
    if (days && *days < asked.daysOfCertificate)
        add(FindingId::CertificateExpiring, asked.baseUrl.host(),
            "The certificate is valid for "_L1 + QString::number(*days)
                + " more days; after that no launcher gets anything."_L1);
    askManifest(Kind::Live);
    if (asked.test)
        askManifest(Kind::Test);
    askInfo();
    askLauncherFile(QString(launcherFileName));
    askLauncherFile(QString(updaterFileName));
    askForMissing(u"halden-probe-asks-for-what-is-not-there.exe"_s);
    askForMissing(
        ServerLayout::kindFolder(Kind::Live) + u"/halden-probe-asks-for-what-is-not-there"_s);
}

/// Tells a certificate from a version, and both from a server that is away.
void Probe::explainFailure(const ProbeAnswer& failure)
{
    const QString host = asked.baseUrl.host();
    if (!failure.certificateError.isEmpty()) {
        isServerReached = true;
        add(FindingId::CertificateUntrusted, host,
            "Launchers do not trust the certificate: "_L1 + failure.certificateError + '.'_L1);
        return;
    }
    if (failure.isSilent)
        add(FindingId::ServerUnreachable, host,
            u"The server has said nothing for %1 seconds."_s.arg(asked.secondsOfSilence));
    else if (failure.isNobodyThere)
        add(FindingId::ServerUnreachable, host,
            "The server cannot be asked: "_L1 + failure.error + '.'_L1);
    else
        askForOldVersions(failure.error);
}

void Probe::askForOldVersions(const QString& error)
{
    // The manager would go on with the old settings for the same host.
    manager.clearConnectionCache();
    ask({ address(liveManifestFileName), oldDate(), Body::Beginning,
          [this, error](const ProbeAnswer& answer) {
              isServerReached = answer.status != 0;
              if (!isServerReached)
                  askWithoutTls(error);
              else
                  add(FindingId::TlsVersionMissing, asked.baseUrl.host(),
                      u"The server does not speak TLS 1.2, and launchers speak nothing else."_s);
          },
          QSsl::AnyProtocol });
}

/// A server that answers plain http where TLS is spoken looks like none at all.
void Probe::askWithoutTls(const QString& error)
{
    constexpr int portOfHttps = 443;
    QUrl plain = address(liveManifestFileName);
    plain.setPort(plain.port(portOfHttps));
    plain.setScheme(u"http"_s);
    ask({ plain, oldDate(), Body::Beginning,
          [this, error, port = plain.port()](const ProbeAnswer& answer) {
              isServerReached = answer.status != 0;
              if (isServerReached)
                  add(FindingId::ServerWithoutTls, asked.baseUrl.host(),
                      u"The server answers plain http on port %1 and speaks no TLS there."_s.arg(
                          port));
              else
                  add(FindingId::ServerUnreachable, asked.baseUrl.host(),
                      "The server cannot be asked: "_L1 + error + '.'_L1);
          } });
}

void Probe::takeCertificates(const QList<QSslCertificate>& chain)
{
    const QDateTime now = QDateTime::currentDateTimeUtc();
    for (const QSslCertificate& certificate : chain) {
        const qint64 left = now.daysTo(certificate.expiryDate());
        days = std::min(days.value_or(left), left);
    }
}

void Probe::askManifest(Kind kind)
{
    ask({ address(ServerLayout::manifestName(kind)), oldDate(), Body::Whole,
          [this, kind](const ProbeAnswer& answer) {
              takeManifest(kind, answer);
          } });
}

void Probe::takeManifest(Kind kind, const ProbeAnswer& answer)
{
    const QString name = ServerLayout::manifestName(kind);
    if (!isUsable(name, 0, FindingId::ManifestMissing, answer))
        return;
    checkDate(name, answer);
    checkCaching(name, answer);
    compareManifest(name, answer);
    askDates(name, answer);
    askFilesOf(kind, answer.body);
}

void Probe::askFilesOf(Kind kind, const QByteArray& manifest)
{
    const QString name = ServerLayout::manifestName(kind);
    QTemporaryFile file;
    if (!file.open() || file.write(manifest) != manifest.size() || !file.flush()) {
        trouble = u"%1 cannot be looked at: %2. Make room in the folder for temporary files, or "
                  "give yourself the right to it, or name another one in TMPDIR"_s.arg(
                      name, file.errorString());
        return;
    }
    found += CheckReading::findings(file.fileName(), name);
    const CheckedManifest checked{ name, file.fileName(), kind,
                                   ManifestContent::read(file.fileName(), u'\\', 0) };
    found += CheckEntries::findings(checked, {});
    for (qint64 n = 1; n <= checked.content.count(); ++n) {
        const PatchManifestEntry& entry = checked.content.entry(n);
        const QString& hash = checked.content.entry(n).hash;
        if (entry.action() != PatchAction::FileDownload || entry.name.isEmpty() || hash.isEmpty())
            continue;
        askPatchFile(
            { name, n,
              PatchLayout::patchFile(asked.baseUrl.toString(), ServerLayout::word(kind), entry),
              hash, ServerLayout::statedPath(kind, entry) },
            serverTime);
    }
}

void Probe::compareManifest(const QString& name, const ProbeAnswer& answer)
{
    if (asked.tree.isEmpty())
        return;
    QFile local(asked.tree + u'/' + name);
    if (!local.open(QIODevice::ReadOnly)) {
        notInTree.insert(name);
        add(FindingId::MissingInTree, name,
            u"%1 has no such file to compare with (%2)."_s.arg(asked.tree, local.errorString()));
    } else if (local.readAll() != answer.body) {
        add(FindingId::DiffersFromTree, name,
            u"The server sends another manifest than the one in %1, dated %2: players do not get "
            "what is published."_s.arg(asked.tree, Dates::shown(answer.lastModified)));
    }
}

/// Launchers ask by date: a file from the future is newer than every copy.
void Probe::checkDate(const QString& name, const ProbeAnswer& answer)
{
    constexpr qint64 tolerance = 10; // seconds
    const QDateTime here = QDateTime::currentDateTimeUtc();
    const QDateTime now = answer.date.isValid() ? std::min(here, answer.date.toUTC()) : here;
    if (!answer.lastModified.isValid() || now.secsTo(answer.lastModified) <= tolerance)
        return;
    const QString server
        = answer.date.isValid() ? u", the server's %1"_s.arg(Dates::shown(answer.date)) : QString();
    add(FindingId::DateAhead, name,
        u"It is dated %1. This machine's clock says %2%3: until then every start fetches it anew."_s
            .arg(Dates::shown(answer.lastModified), Dates::shown(here), server));
}

void Probe::checkCaching(const QString& name, const ProbeAnswer& answer)
{
    if (const qint64 seconds = answer.secondsInCaches(); seconds > 0)
        add(FindingId::CachedTooLong, name,
            u"Caches on the way may hand out an old copy for %1 seconds: the server sends "
            "\"Cache-Control: %2\"."_s.arg(seconds)
                .arg(QString::fromLatin1(answer.cacheControl)));
}

/// Asked for without a date that matters, so nothing is compared with it.
void Probe::askInfo()
{
    if (asked.infoUrl.isEmpty())
        return;
    ++files;
    ask({ asked.infoUrl, oldDate(), Body::Beginning, [this](const ProbeAnswer& answer) {
             emit fileDone();
             takeInfo(answer);
         } });
}

void Probe::takeInfo(const ProbeAnswer& answer)
{
    const QString subject = asked.infoUrl.path();
    if (!answer.certificateError.isEmpty())
        add(FindingId::CertificateUntrusted, asked.infoUrl.host(),
            "Launchers do not trust the certificate: "_L1 + answer.certificateError + '.'_L1);
    else if (isUsable(subject, 0, FindingId::InfoMissing, answer))
        checkCaching(subject, answer);
}

void Probe::askLauncherFile(const QString& name)
{
    ++files;
    const bool compares = asked.deep || !asked.tree.isEmpty();
    Question question{ address(name), oldDate(), compares ? Body::Hash : Body::Beginning,
                       [this, name](const ProbeAnswer& answer) {
                           emit fileDone();
                           takeLauncherFile(name, answer);
                       } };
    question.beginning = Updater::programHeadSize;
    ask(std::move(question));
}

void Probe::takeLauncherFile(const QString& name, const ProbeAnswer& answer)
{
    if (!isUsable(name, 0, FindingId::LauncherFileMissing, answer))
        return;
    checkDate(name, answer);
    checkCaching(name, answer);
    askDates(name, answer);
    const QString fault = faultOfProgram(answer.body, std::max(answer.length, answer.received));
    if (!fault.isEmpty())
        add(FindingId::NotAProgram, name,
            u"What the server sends is no launcher: it %1. Players' updaters throw it away."_s.arg(
                fault));
    if (asked.tree.isEmpty())
        return;
    const FileWork::Digest local = FileWork::hash(asked.tree + u'/' + name, nullptr);
    if (local.problem)
        add(FindingId::MissingInTree, name, u"It cannot be compared: "_s + *local.problem + u'.');
    else if (local.md5.toLatin1() != answer.md5)
        add(FindingId::DiffersFromTree, name,
            u"The server sends another file than the one in %1, dated %2: players do not get what "
            "is published."_s.arg(asked.tree, Dates::shown(answer.lastModified)));
}

void Probe::askForMissing(const QString& name)
{
    ask({ address(name), oldDate(), Body::Beginning, [this, name](const ProbeAnswer& answer) {
             if (answer.status == statusOk)
                 add(FindingId::MissingFileAnswered, name,
                     u"The server answers 200 for a file that does not exist: launchers store that "
                     "answer in place of a file."_s);
         } });
}

/// A launcher's copy bears the date of its download, so it is later than the
/// server's.
void Probe::askDates(const QString& name, const ProbeAnswer& answer)
{
    const QDateTime exact = answer.lastModified.toUTC();
    const QDateTime later = exact.isValid() && serverTime <= exact ? exact.addSecs(1) : serverTime;
    ask({ address(name), later, Body::Beginning, [this, name](const ProbeAnswer& again) {
             if (again.status == statusOk)
                 add(FindingId::LaterDateAnsweredInFull, name,
                     u"The file is sent in full to launchers whose copy has a later date: every "
                     "start downloads it again, and a launcher that downloads itself hands over to "
                     "the updater at every start."_s);
         } });
    if (!exact.isValid())
        return;
    ask({ address(name), exact, Body::Beginning, [this, name](const ProbeAnswer& again) {
             if (again.status == statusOk)
                 add(FindingId::ExactDateAnsweredInFull, name,
                     u"The file is sent in full to launchers whose copy has the very same date."_s);
         } });
}

void Probe::askPatchFile(const PatchFile& file, const QDateTime& ifModifiedSince)
{
    files += ifModifiedSince.isValid() ? 1 : 0;
    ask({ file.url, ifModifiedSince, asked.deep ? Body::Hash : Body::Beginning,
          [this, file](const ProbeAnswer& answer) {
              takePatchFile(file, answer);
          } });
}

void Probe::takePatchFile(const PatchFile& file, const ProbeAnswer& answer)
{
    if (answer.status == statusNotModified) {
        add(FindingId::PatchFileNotModified, file.manifest,
            file.url.toString()
                + " is answered 304 to a later date: a copy that is damaged in a player's cache "
                  "never heals."_L1,
            file.entry);
        askPatchFile(file, {});
        return;
    }
    emit fileDone();
    if (!isUsable(file.manifest, file.entry, FindingId::FileMissing, answer))
        return;
    compareWithTree(file, answer);
    compareHash(file, answer);
}

bool Probe::isUsable(
    const QString& subject, qint64 entry, FindingId missing, const ProbeAnswer& answer)
{
    const auto fail = [&](FindingId id, const QString& text) {
        add(id, subject, text, entry);
        return false;
    };
    if (answer.redirectsToPlain)
        return fail(
            FindingId::RedirectInsecure,
            u"The server redirects to plain http, where launchers do not follow."_s);
    if (isMissing(answer.status))
        return fail(missing, u"The server says that there is no such file."_s);
    if (answer.status == statusNotModified)
        return fail(
            FindingId::EarlierDateNotAnswered,
            u"The server answers 304 to a date long before the file's: players never get "
            "it."_s);
    if (!answer.error.isEmpty())
        return fail(
            FindingId::FileUnreachable, "The file does not arrive: "_L1 + answer.error + '.'_L1);
    if (answer.status != statusOk)
        return fail(
            FindingId::FileUnreachable,
            "The server answers with status "_L1 + QString::number(answer.status) + '.'_L1);
    if (answer.toTheEnd && answer.received < answer.length)
        return fail(
            FindingId::FileUnreachable,
            "Only "_L1 + QString::number(answer.received) + " of "_L1
                + QString::number(answer.length) + " bytes arrive."_L1);
    if (isWebPage(answer.body) && !isNamedLikePage(answer.url) && missing != FindingId::InfoMissing)
        return fail(
            FindingId::ErrorPage,
            u"The server sends a web page in place of the file, with status 200: launchers "
            "store it as if it were the file."_s);
    if (!answer.encoding.isEmpty() && answer.encoding != "identity")
        return fail(
            FindingId::ContentEncoded,
            "The server sends the file packed as "_L1 + QString::fromLatin1(answer.encoding)
                + ": a cache on the way may hand out the packed bytes as the file."_L1);
    if (answer.length < 0)
        add(FindingId::LengthMissing, subject,
            u"The answer has no Content-Length: launchers show no progress and cannot tell a file "
            "that was cut short."_s,
            entry);
    if (answer.length == 0)
        return fail(
            FindingId::FileEmpty, u"The file is empty, and launchers store no empty answer."_s);
    return true;
}

void Probe::compareWithTree(const PatchFile& file, const ProbeAnswer& answer)
{
    if (asked.tree.isEmpty() || file.serverPath.isEmpty() || notInTree.contains(file.manifest))
        return;
    const QFileInfo local(asked.tree + u'/' + file.serverPath);
    if (!local.isFile())
        add(FindingId::MissingInTree, file.manifest,
            u"There is no %1 to compare with."_s.arg(local.filePath()), file.entry);
    else if (answer.length >= 0 && answer.length != local.size())
        add(FindingId::LengthWrong, file.manifest,
            file.url.toString() + " has "_L1 + QString::number(answer.length)
                + " bytes on the server, "_L1 + QString::number(local.size()) + " in the tree."_L1,
            file.entry);
}

void Probe::compareHash(const PatchFile& file, const ProbeAnswer& answer)
{
    const QString actual = QString::fromLatin1(answer.md5);
    if (!asked.deep || actual == file.hash.toLower())
        return;
    add(FindingId::HashMismatch, file.manifest,
        file.url.toString() + " arrives with the hash "_L1 + actual + ", not \""_L1 + file.hash
            + "\": players download it at every start."_L1,
        file.entry);
}

} // namespace Publisher
