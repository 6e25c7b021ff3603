#include "app/constants.h"
#include "tests/publisher/commandrun.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/httpsserver.h"
#include "tests/support/openssl.h"
#include "tests/support/testmain.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QUrl>

using namespace TestSupport;
using namespace Publisher;

namespace {

QString host()
{
    return QUrl(downloadBaseUrl).host();
}

QString webHost()
{
    return QUrl(launcherInfoUrl).host();
}

QDateTime inDays(int days)
{
    return QDateTime::currentDateTimeUtc().addDays(days);
}

const Validity old{ inDays(-3650), inDays(3650) };
const Validity young{ inDays(-700), inDays(3650) };
const Validity oldAndNearItsEnd{ inDays(-3650), inDays(20) };
const Validity nearItsEnd{ inDays(-1), inDays(20) };
const Validity ofServers{ inDays(-1), inDays(60) };

} // namespace

/// What `probe` says of the certificates that a server sends, with keys of both kinds
/// in use.
class tst_CertificateChain : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        for (const char* kind : { "rsa", "ec" })
            makeCertificates(kind);
        openssl.run({ "rehash", "/etc/ssl/certs" });
    }

    void chains_data()
    {
        QTest::addColumn<QStringList>("sent");
        QTest::addColumn<QStringList>("findings");
        QTest::addColumn<QStringList>("roots");
        const QString isYoung = "certificate-root-young " + host();
        const QString isIncomplete = "certificate-chain-incomplete " + host();
        const QString endsSooner = "cross-signature-ending " + host();
        for (const QString& kind : { QString("rsa"), QString("ec") }) {
            const auto add = [&](const char* name, const QStringList& sent,
                                 const QStringList& findings, const QStringList& roots) {
                QStringList files;
                for (const QString& file : sent)
                    files.append(kind + '-' + file);
                QTest::newRow(qPrintable(kind + ": " + name)) << files << findings << roots;
            };
            add("an old root", { "server", "between" }, {}, { "old" });
            add("straight from the root", { "server-of-old" }, {}, { "old" });
            add("its root sent along", { "server", "between", "old" }, {}, { "old" });
            add("a young root", { "server-of-young" }, { isYoung }, { "young" });
            add("a young root that an old one vouches for", { "server-of-young", "cross-young" },
                {}, { "old", "young" });
            add("an intermediate missing that is here", { "server-of-stored" }, { isIncomplete },
                { "old" });
            add("the same, sent", { "server-of-stored", "stored" }, {}, { "old" });
            add("an intermediate missing", { "server" }, { "certificate-untrusted " + host() }, {});
            add("a cross-signature near its end", { "server-of-next", "cross-next" },
                { endsSooner }, { "old", "next" });
            add("a cross-signature of a root near its end", { "server-of-last", "cross-last" },
                { endsSooner }, { "ending", "last" });
        }
    }

    void chains()
    {
        QFETCH(QStringList, sent);
        QFETCH(QStringList, findings);
        QFETCH(QStringList, roots);
        HttpsServer server(certificate(sent));
        furnish(server);
        const CommandRun probed = probe(address(server), address(server) + "/alert");
        QCOMPARE(probed.findings(), findings);
        QStringList names;
        const QJsonArray told = probed.json["certificateRoots"].toArray();
        for (const QJsonValue root : told)
            names.append(root["name"].toString().section('-', 1));
        QCOMPARE(names, roots);
    }

    void sinceWhen()
    {
        HttpsServer server(certificate({ "ec-server", "ec-between" }));
        furnish(server);
        const CommandRun probed = probe(address(server), address(server) + "/alert");
        QCOMPARE(
            probed.json["certificateRoots"][0]["since"].toString(),
            old.notBefore.date().toString(Qt::ISODate));
    }

    /// The text in the window comes from a host with a certificate of its own.
    void hostOfTheWindow()
    {
        HttpsServer server(certificate({ "rsa-server", "rsa-between" }));
        furnish(server);
        HttpsServer web(certificate({ "rsa-server-of-stored" }));
        furnish(web);
        const QString alert = QString("https://%1:%2/alert").arg(webHost()).arg(web.port());
        QCOMPARE(
            probe(address(server), alert).findings(),
            QStringList("certificate-chain-incomplete " + webHost()));
    }

private:
    QString file(const QString& name, const char* suffix) const
    {
        return folder.filePath(name + suffix);
    }

    void makeKey(const QString& name) const
    {
        const QStringList kind = name.startsWith("rsa")
            ? QStringList{ "-algorithm", "rsa", "-pkeyopt", "rsa_keygen_bits:2048" }
            : QStringList{ "-algorithm", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1" };
        openssl.run(QStringList{ "genpkey", "-quiet", "-out", file(name, ".key") } + kind);
    }

    /// A certificate in a file of its own for the holder of a key. Who is its own
    /// issuer is a root.
    void certify(
        const QString& to, const QString& holder, const QString& issuer, const Validity& validity,
        const QString& section = "authority") const
    {
        QStringList asked{ "-key", file(holder, ".key") };
        if (section == "server")
            asked += QStringList{ "-addext", "subjectAltName=DNS:" + host() + ",DNS:" + webHost() };
        openssl.request(holder, file(to, ".csr"), asked);
        const QStringList signer = holder == issuer
            ? QStringList{ "-selfsign", "-keyfile", file(issuer, ".key") }
            : QStringList{ "-cert", file(issuer, ".pem"), "-keyfile", file(issuer, ".key") };
        openssl.certify({ file(to, ".csr"), file(to, ".pem"), validity, section }, signer);
    }

    void makeAuthority(const QString& name, const QString& issuer, const Validity& validity) const
    {
        makeKey(name);
        certify(name, name, issuer, validity);
    }

    void makeServer(const QString& name, const QString& issuer) const
    {
        makeKey(name);
        certify(name, name, issuer, ofServers, "server");
    }

    void trust(const QString& name) const
    {
        if (!QFile::copy(file(name, ".pem"), "/etc/ssl/certs/" + name + ".pem"))
            qFatal("cannot trust %s", qPrintable(name));
    }

    void makeCertificates(const QString& kind) const
    {
        const auto named = [&](const char* name) {
            return kind + '-' + name;
        };
        const QString root = named("old");
        const QString ending = named("ending");
        makeAuthority(root, root, old);
        makeAuthority(ending, ending, oldAndNearItsEnd);
        for (const char* name : { "young", "next", "last" })
            makeAuthority(named(name), named(name), young);
        for (const char* name : { "between", "stored" })
            makeAuthority(named(name), root, old);
        certify(named("cross-young"), named("young"), root, young);
        certify(named("cross-next"), named("next"), root, nearItsEnd);
        certify(named("cross-last"), named("last"), ending, young);
        makeServer(named("server"), named("between"));
        for (const char* name : { "old", "young", "next", "last", "stored" })
            makeServer(named("server-of-") + name, named(name));
        for (const char* name : { "old", "ending", "young", "next", "last", "stored" })
            trust(named(name));
    }

    ServerCertificate certificate(const QStringList& sent) const
    {
        const QString& own = sent.constFirst();
        const auto read = [&](const QString& name) {
            return QSslCertificate(readFile(file(name, ".pem")));
        };
        const QSsl::KeyAlgorithm kind = own.startsWith("rsa") ? QSsl::Rsa : QSsl::Ec;
        ServerCertificate made{ read(own), QSslKey(readFile(file(own, ".key")), kind),
                                file(own, ".pem"), file(own, ".key") };
        for (const QString& other : sent.sliced(1))
            made.others.append(read(other));
        return made;
    }

    /// Everything is there but files of patch and launcher, which is not the question.
    static void furnish(HttpsServer& server)
    {
        server.listen(0);
        server.answer("/patch.ini", HttpAnswer::ok("numberOfFiles=0\n"));
        server.answer("/alert", HttpAnswer::ok("<html><p>Willkommen"));
    }

    static QString address(const HttpsServer& server)
    {
        return "https://" + host() + ':' + QString::number(server.port());
    }

    static CommandRun probe(const QString& url, const QString& alert)
    {
        CommandRun probed({ "probe", "--json", "--alert", alert, url });
        QJsonArray others;
        const QJsonArray findings = probed.json["findings"].toArray();
        for (const QJsonValue finding : findings) {
            if (finding["id"] != QString("launcher-file-missing"))
                others.append(finding);
        }
        probed.json["findings"] = others;
        return probed;
    }

    QTemporaryDir folder;
    const Openssl openssl{ folder.path() };
};

HALDEN_TEST_MAIN(tst_CertificateChain)
#include "tst_certificatechain.moc"
