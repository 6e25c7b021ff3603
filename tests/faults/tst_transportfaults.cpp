#include "tests/faults/celltable.h"
#include "tests/faults/faultrows.h"
#include "tests/faults/faultyevening.h"
#include "tests/faults/http2server.h"
#include "tests/support/testmain.h"

using namespace TestSupport;

/// Puts something in the place of the community's server; what it returns keeps
/// that alive.
using Replacement = std::function<std::shared_ptr<void>()>;
Q_DECLARE_METATYPE(Replacement)

namespace {

/// A server that has everything, behind another handshake.
std::shared_ptr<void>
otherServer(const ServerCertificate& certificate, TlsVersion version = TlsVersion::Any)
{
    auto server = std::make_shared<HttpsServer>(certificate, version);
    server->answerAnythingElse([](const HttpRequest&) { return HttpAnswer::ok("evil"); });
    server->listen();
    return server;
}

/// Something on the port that is no TLS.
std::shared_ptr<void> greeter(const HttpAnswer& greeting)
{
    auto server = std::make_shared<HttpsServer>();
    server->greet(greeting);
    server->listenPlain(443);
    return server;
}

/// Promises HTTP/2 in the handshake and speaks HTTP/1.1 all the same.
std::shared_ptr<void> http2Liar()
{
    auto server = std::make_shared<HttpsServer>(trustedCertificate(), TlsVersion::Only12);
    server->offerProtocols({ "h2" });
    server->answerAnythingElse([](const HttpRequest&) { return HttpAnswer::ok("evil").close(); });
    server->listen();
    return server;
}

void rows(const QString& fault, const QString& error, const Replacement& replacement)
{
    for (const Target target : Targets::all())
        QTest::newRow(rowName(fault, target).constData())
            << fault << target << replacement << error;
}

const QStringList otherNames{ "download.tarnwick.example.evil.example" };

void certificates()
{
    const QString refused = "SslHandshakeFailedError";
    const auto issued = [](const QStringList& names, const Validity& validity) {
        return [certificate = trustedAuthority().issue(names, validity)] {
            return otherServer(certificate);
        };
    };
    rows("certificate expired", refused, issued(communityHosts(), Validity::expired()));
    rows("certificate not yet valid", refused, issued(communityHosts(), Validity::notYet()));
    rows("certificate of another host", refused, issued(otherNames, Validity::current()));
    rows("certificate self-signed", refused, [] {
        static const ServerCertificate certificate
            = trustedAuthority().selfSigned(communityHosts());
        return otherServer(certificate);
    });
    rows("certificate of an unknown authority", refused, [] {
        static const CertificateAuthority authority;
        static const ServerCertificate certificate = authority.issue(communityHosts());
        return otherServer(certificate);
    });
}

void versions()
{
    const QString refused = "SslHandshakeFailedError";
    const auto only = [](TlsVersion version) {
        return [version] {
            return otherServer(trustedCertificate(), version);
        };
    };
    rows("TLS 1.3 only", refused, only(TlsVersion::Only13));
    rows("TLS 1.1 only", refused, only(TlsVersion::Only11));
    rows("TLS 1.0 only", refused, only(TlsVersion::Only10));
    rows("HTTP/2 promised, not spoken", "RemoteHostClosedError", [] { return http2Liar(); });
}

void cuts()
{
    const QString closed = "RemoteHostClosedError";
    rows("connection refused", "ConnectionRefusedError", [] { return std::shared_ptr<void>(); });
    rows("closed before the handshake", closed, [] { return greeter(HttpAnswer().close()); });
    rows("reset before the handshake", closed, [] { return greeter(HttpAnswer().reset()); });
    rows("closed in the handshake", closed, [] {
        return greeter(HttpAnswer().awaitBytes().close());
    });
    rows("reset in the handshake", closed, [] {
        return greeter(HttpAnswer().awaitBytes().reset());
    });
    rows("no TLS on the port", "SslHandshakeFailedError", [] {
        return greeter(HttpAnswer().awaitBytes().send("HTTP/1.1 200 OK\r\n\r\nevil"));
    });
}

} // namespace

/// What comes before HTTP goes wrong: from the target on, everything that is
/// fetched meets the fault.
class tst_TransportFaults : public QObject {
    Q_OBJECT

private slots:
    void cell_data();
    void cell();
    void http2_data();
    void http2();

private:
    CellTable cells;
};

void tst_TransportFaults::cell_data()
{
    QTest::addColumn<QString>("fault");
    QTest::addColumn<Target>("target");
    QTest::addColumn<Replacement>("replacement");
    QTest::addColumn<QString>("error");
    certificates();
    versions();
    cuts();
}

void tst_TransportFaults::cell()
{
    QFETCH(QString, fault);
    QFETCH(Target, target);
    QFETCH(Replacement, replacement);
    QFETCH(QString, error);
    FaultyEvening evening(target);
    std::shared_ptr<void> inItsPlace;
    evening.replaceServerBeforeTarget([&] { inItsPlace = replacement(); });
    evening.afterwards([&] { inItsPlace.reset(); });
    evening.expectError(error);
    evening.laterTargetsMayFail();
    if (fault.startsWith("HTTP/2"))
        FaultyEvening::toolkitWarns("stream 1 finished with error: ");
    QCOMPARE(evening.play(), keptThenWhole);
    cells.add(fault, target, keptThenWhole);
}

void tst_TransportFaults::http2_data()
{
    QTest::addColumn<Target>("target");
    for (const Target target : Targets::all())
        QTest::newRow(qPrintable(Targets::name(target))) << target;
}

void tst_TransportFaults::http2()
{
    QFETCH(Target, target);
    FaultyEvening evening(target);
    Http2Server server(target);
    evening.replaceServerBeforeTarget([&] { server.start(); });
    evening.afterwards([&] { server.stop(); });
    QCOMPARE(evening.play(), whole);
    QVERIFY2(server.hasServedByHttp2(target), qPrintable(server.log()));
    cells.add("HTTP/2 offered", target, whole);
}

HALDEN_TEST_MAIN(tst_TransportFaults)
#include "tst_transportfaults.moc"
