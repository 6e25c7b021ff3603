#include "tests/faults/celltable.h"
#include "tests/faults/faultrows.h"
#include "tests/faults/faultyevening.h"
#include "tests/support/testmain.h"

#include <tuple>

using namespace TestSupport;

/// An answer to a request for this target.
using FaultyAnswer = std::function<HttpAnswer(Target)>;
Q_DECLARE_METATYPE(FaultyAnswer)

namespace {

const QString noError;
const QString cut = QStringLiteral("RemoteHostClosedError");

void row(
    const QString& fault, Target target, const FaultyAnswer& answer, const QString& error,
    const QString& result, const QString& failedUrl = QString())
{
    QTest::newRow(rowName(fault, target).constData())
        << fault << target << answer << error << result << failedUrl;
}

/// The same for all five targets. The log names `failedUrl` if there is one.
void rows(
    const QString& fault, const FaultyAnswer& answer, const QString& error,
    const QString& result = keptThenWhole, const QString& failedUrl = QString())
{
    for (const Target target : Targets::all())
        row(fault, target, answer, error, result, failedUrl);
}

/// The launcher takes what it gets for the whole file.
void rowsTakenAsSent(const QString& fault, const FaultyAnswer& answer)
{
    for (const Target target : Targets::all())
        row(fault, target, answer, noError, wrongContent(target));
}

void refusal(int code, const QString& error)
{
    const QByteArray page = "<html><h1>" + QByteArray::number(code) + "</h1></html>";
    rows(
        QString::number(code) + " with a page",
        [code, page](Target) { return HttpAnswer::status(code, page); }, error);
}

void refusals()
{
    refusal(400, "ProtocolInvalidOperationError");
    refusal(401, "AuthenticationRequiredError");
    refusal(403, "ContentAccessDenied");
    refusal(404, "ContentNotFoundError");
    refusal(405, "ContentOperationNotPermittedError");
    refusal(407, "ProxyAuthenticationRequiredError");
    refusal(409, "ContentConflictError");
    refusal(410, "ContentGoneError");
    refusal(418, "ProtocolInvalidOperationError");
    refusal(429, "UnknownContentError");
    refusal(451, "UnknownContentError");
    rows(
        "401 that asks for a password",
        [](Target) {
            return HttpAnswer::status(401, "who?", { { "WWW-Authenticate", "Basic realm=x" } });
        },
        "AuthenticationRequiredError");
    refusal(500, "InternalServerError");
    refusal(501, "OperationNotImplementedError");
    refusal(502, "UnknownServerError");
    refusal(503, "ServiceUnavailableError");
    refusal(504, "UnknownServerError");
    refusal(507, "UnknownServerError");
}

QByteArray half(Target target)
{
    const QByteArray content = Targets::today(target);
    return content.left(content.size() / 2);
}

void oddSuccesses()
{
    rows(
        "200 without a body", [](Target) { return HttpAnswer::ok(""); }, noError);
    rows(
        "204", [](Target) { return HttpAnswer::head(204); }, noError);
    rowsTakenAsSent("206 nobody asked for", [](Target target) {
        return HttpAnswer::status(206, half(target), { { "Content-Range", "bytes 0-9/99" } });
    });
    rows(
        "100 before the answer",
        [](Target target) {
            HttpAnswer answer = HttpAnswer::head(100);
            return answer.send(
                "HTTP/1.1 200 OK\r\nContent-Length: "
                + QByteArray::number(Targets::today(target).size()) + "\r\n\r\n"
                + Targets::today(target));
        },
        noError, whole);
    rows(
        "paced pieces",
        [](Target target) {
            const QByteArray content = Targets::today(target);
            return HttpAnswer::announcing(content.size()).drip(content, 2'000, 5);
        },
        noError, whole);
}

void redirects()
{
    rows(
        "redirect to itself",
        [](Target target) { return HttpAnswer::redirect(Targets::requestPath(target)); },
        "TooManyRedirectsError");
    rows(
        "redirect to another host",
        [](Target) { return HttpAnswer::redirect("https://mirror.tarnwick.example/moved"); },
        noError, whole);
    for (const auto& [fault, url, error] :
         { std::tuple(
               "redirect to plain HTTP", "http://mirror.tarnwick.example/moved",
               "InsecureRedirectError"),
           std::tuple(
               "redirect to an unknown host", "https://nowhere.tarnwick.example/",
               "HostNotFoundError") }) {
        const QByteArray location(url);
        rows(
            fault, [location](Target) { return HttpAnswer::redirect(location); }, error,
            keptThenWhole, location);
    }
}

HttpAnswer withLengths(Target target, const QList<QByteArray>& lengths)
{
    HttpHeaders headers;
    for (const QByteArray& length : lengths)
        headers.append({ "Content-Length", length });
    return HttpAnswer::head(200, headers).send(Targets::today(target)).close();
}

void lengths()
{
    rows(
        "Content-Length too large, connection ends",
        [](Target target) { return withLengths(target, { "30000" }); }, cut);
    rows(
        "Content-Length of 3 GiB, connection ends",
        [](Target target) { return withLengths(target, { "3221225472" }); }, cut);
    rowsTakenAsSent(
        "Content-Length too small", [](Target target) { return withLengths(target, { "10" }); });
    rows(
        "Content-Length negative", [](Target target) { return withLengths(target, { "-5" }); },
        noError, whole);
    rows(
        "Content-Length twice, the same",
        [](Target target) {
            const QByteArray length = QByteArray::number(Targets::today(target).size());
            return withLengths(target, { length, length });
        },
        noError, whole);
    rowsTakenAsSent("Content-Length twice, different", [](Target target) {
        const QByteArray length = QByteArray::number(Targets::today(target).size());
        return withLengths(target, { "10", length });
    });
    rows(
        "Content-Length no number", [](Target target) { return withLengths(target, { "many" }); },
        noError, whole);
    rows(
        "no Content-Length", [](Target target) { return withLengths(target, {}); }, noError, whole);
}

HttpAnswer chunkedHead()
{
    return HttpAnswer::head(200, { { "Transfer-Encoding", "chunked" } });
}

void truncations()
{
    rows(
        "cut short, with a length",
        [](Target target) { return HttpAnswer::announcing(20'050).send(half(target)).close(); },
        cut);
    rowsTakenAsSent("cut short, without a length", [](Target target) {
        return HttpAnswer::head(200).send(half(target)).close();
    });
    rows(
        "cut short, chunked",
        [](Target target) {
            const QByteArray size = QByteArray::number(half(target).size(), 16);
            return chunkedHead().send(size + "\r\n" + half(target) + "\r\n").close();
        },
        cut);
    rows(
        "cut short in a chunk",
        [](Target target) { return chunkedHead().send("7000\r\n" + half(target)).close(); }, cut);
    rows(
        "chunk of no size",
        [](Target target) { return chunkedHead().send("zz\r\n" + half(target)).close(); }, noError);
}

void resets()
{
    rows(
        "reset before the headers", [](Target) { return HttpAnswer().reset(); }, cut);
    rows(
        "reset in the headers",
        [](Target) { return HttpAnswer().send("HTTP/1.1 200 OK\r\nContent-Le").reset(); }, cut);
    rows(
        "reset after the headers",
        [](Target) { return HttpAnswer::announcing(20'000).pause(20).reset(); }, cut);
    rows(
        "reset in the body",
        [](Target target) {
            return HttpAnswer::announcing(20'050).send(half(target)).pause(20).reset();
        },
        cut);
    rows(
        "no HTTP at all",
        [](Target) { return HttpAnswer().send("220 smtp.tarnwick.example ready\r\n\r\n").close(); },
        cut);
}

HttpAnswer encoded(const QByteArray& encoding, const QByteArray& body)
{
    return HttpAnswer::ok(body, { { "Content-Encoding", encoding } });
}

/// Without the length that the toolkit puts in front.
QByteArray deflated(const QByteArray& content)
{
    return qCompress(content, 9).mid(4);
}

void encodings()
{
    rows(
        "deflated",
        [](Target target) { return encoded("deflate", deflated(Targets::today(target))); }, noError,
        whole);
    rows(
        "gzip announced, none sent",
        [](Target target) { return encoded("gzip", Targets::today(target)); },
        "UnknownContentError");
    rowsTakenAsSent("deflated and cut short", [](Target target) {
        const QByteArray packed = deflated(Targets::today(target));
        return encoded("deflate", packed.left(packed.size() / 2));
    });
    static const QByteArray bomb = deflated(QByteArray(64 << 20, '\0'));
    rows(
        "archive bomb", [](Target) { return encoded("deflate", bomb); }, "UnknownContentError");
}

QByteArray manyHeaders()
{
    QByteArray headers;
    for (int i = 0; i < 200'000; ++i)
        headers += "X-" + QByteArray::number(i) + ": y\r\n";
    return headers;
}

void excesses()
{
    rows(
        "200,000 headers",
        [](Target target) {
            static const QByteArray headers = manyHeaders();
            return HttpAnswer()
                .send("HTTP/1.1 200 OK\r\n" + headers + "\r\n")
                .send(Targets::today(target))
                .close();
        },
        noError, whole);
    rows(
        "body without an end, cut after 16 MiB",
        [](Target) {
            static const QByteArray body(16 << 20, 'x');
            return HttpAnswer::announcing(1LL << 40).send(body).reset();
        },
        cut);
}

} // namespace

/// The community's server answers, but not as it should.
class tst_AnswerFaults : public QObject {
    Q_OBJECT

private slots:
    void cell_data();
    void cell();
    void notModifiedWithoutACopy_data();
    void notModifiedWithoutACopy();

private:
    CellTable cells;
};

void tst_AnswerFaults::cell_data()
{
    QTest::addColumn<QString>("fault");
    QTest::addColumn<Target>("target");
    QTest::addColumn<FaultyAnswer>("answer");
    QTest::addColumn<QString>("error");
    QTest::addColumn<QString>("result");
    QTest::addColumn<QString>("failedUrl");
    refusals();
    oddSuccesses();
    redirects();
    lengths();
    truncations();
    resets();
    encodings();
    excesses();
}

void tst_AnswerFaults::cell()
{
    QFETCH(QString, fault);
    QFETCH(Target, target);
    QFETCH(FaultyAnswer, answer);
    QFETCH(QString, error);
    QFETCH(QString, result);
    QFETCH(QString, failedUrl);
    FaultyEvening evening(target);
    evening.answerTarget(answer(target));
    evening.server.answer("/moved", HttpAnswer::ok(Targets::today(target)));
    evening.expectError(error, failedUrl);
    QCOMPARE(evening.play(), result);
    cells.add(fault, target, result);
}

void tst_AnswerFaults::notModifiedWithoutACopy_data()
{
    QTest::addColumn<Target>("target");
    for (const Target target : Targets::all())
        QTest::newRow(qPrintable(Targets::name(target))) << target;
}

void tst_AnswerFaults::notModifiedWithoutACopy()
{
    QFETCH(Target, target);
    FaultyEvening evening(target);
    const QString path = Targets::localPath(target);
    QFile::remove(path);
    evening.answerTarget(HttpAnswer::notModified());
    evening.keptMeans([path] { return !QFile::exists(path); });
    QCOMPARE(evening.play(), keptThenWhole);
    cells.add("304 without a copy", target, keptThenWhole);
}

HALDEN_TEST_MAIN(tst_AnswerFaults)
#include "tst_answerfaults.moc"
