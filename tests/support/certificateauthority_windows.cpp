// By OpenSSL's library, which the launcher ships; there is no program of it.

#include "tests/support/applicationfolder.h"
#include "tests/support/certificateauthority.h"

#include <QUuid>

#include <memory>
#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>
#include <utility>

// Behind OpenSSL's headers, which take back some of its names.
#include <windows.h>

#include <wincrypt.h>

namespace TestSupport {

namespace {

template <auto function> struct FreedBy {
    template <typename Object> void operator()(Object* object) const
    {
        function(object);
    }
};

using Key = std::unique_ptr<EVP_PKEY, FreedBy<&EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, FreedBy<&X509_free>>;
using Memory = std::unique_ptr<BIO, FreedBy<&BIO_free_all>>;
using Extension = std::unique_ptr<X509_EXTENSION, FreedBy<&X509_EXTENSION_free>>;
using Number = std::unique_ptr<BIGNUM, FreedBy<&BN_free>>;
using Signature = std::unique_ptr<ECDSA_SIG, FreedBy<&ECDSA_SIG_free>>;

/// Names and values of a certificate's extensions.
using Extensions = QList<std::pair<int, QByteArray>>;

void require(bool worked, const char* what)
{
    if (!worked)
        qFatal("OpenSSL failed: %s", what);
}

Key makeKey()
{
    Key key(EVP_EC_gen("P-256"));
    require(key != nullptr, "no key");
    return key;
}

QByteArray contentOf(const Memory& memory)
{
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(memory.get(), &bytes);
    return { bytes, size };
}

QByteArray pemOf(EVP_PKEY* key)
{
    const Memory memory(BIO_new(BIO_s_mem()));
    require(
        PEM_write_bio_PrivateKey_traditional(
            memory.get(), key, nullptr, nullptr, 0, nullptr, nullptr)
            == 1,
        "the key as text");
    return contentOf(memory);
}

QByteArray pemOf(X509* certificate)
{
    const Memory memory(BIO_new(BIO_s_mem()));
    require(PEM_write_bio_X509(memory.get(), certificate) == 1, "the certificate as text");
    return contentOf(memory);
}

Memory memoryWith(const QByteArray& bytes)
{
    return Memory(BIO_new_mem_buf(bytes.constData(), static_cast<int>(bytes.size())));
}

Key keyIn(const QString& file)
{
    const QByteArray pem = readFile(file);
    return Key(PEM_read_bio_PrivateKey(memoryWith(pem).get(), nullptr, nullptr, nullptr));
}

Certificate certificateIn(const QString& file)
{
    const QByteArray pem = readFile(file);
    return Certificate(PEM_read_bio_X509(memoryWith(pem).get(), nullptr, nullptr, nullptr));
}

Certificate blankCertificate(const QByteArray& commonName, const Validity& validity)
{
    constexpr int version3 = 2;
    constexpr int serialBits = 120;
    Certificate made(X509_new());
    X509_set_version(made.get(), version3);
    const Number serial(BN_new());
    BN_rand(serial.get(), serialBits, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ANY);
    BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(made.get()));
    ASN1_TIME_set(X509_getm_notBefore(made.get()), validity.notBefore.toSecsSinceEpoch());
    ASN1_TIME_set(X509_getm_notAfter(made.get()), validity.notAfter.toSecsSinceEpoch());
    const auto* name = reinterpret_cast<const unsigned char*>(commonName.constData());
    X509_NAME_add_entry_by_NID(
        X509_get_subject_name(made.get()), NID_commonName, MBSTRING_UTF8, name,
        static_cast<int>(commonName.size()), -1, 0);
    return made;
}

/// Whether both numbers of a signature are as long as can be. Wine 8 does not fill
/// up shorter ones and so takes one signature of 128 for wrong.
bool isOfFullLength(const X509* made)
{
    constexpr int fullLength = 32;
    const ASN1_BIT_STRING* bits = nullptr;
    X509_get0_signature(&bits, nullptr, made);
    const unsigned char* data = bits->data;
    const Signature signature(d2i_ECDSA_SIG(nullptr, &data, bits->length));
    require(signature != nullptr, "the signature's numbers");
    return BN_num_bytes(ECDSA_SIG_get0_r(signature.get())) == fullLength
        && BN_num_bytes(ECDSA_SIG_get0_s(signature.get())) == fullLength;
}

/// Adds what is missing and signs it. Without an issuer it vouches for itself.
void complete(
    X509* made, EVP_PKEY* key, const Extensions& extensions, X509* issuer, EVP_PKEY* issuerKey)
{
    X509_set_pubkey(made, key);
    X509_set_issuer_name(made, X509_get_subject_name(issuer));
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, made, nullptr, nullptr, 0);
    for (const auto& [nid, value] : extensions) {
        const Extension extension(X509V3_EXT_conf_nid(nullptr, &context, nid, value.constData()));
        require(extension && X509_add_ext(made, extension.get(), -1) == 1, value.constData());
    }
    do {
        require(X509_sign(made, issuerKey, EVP_sha256()) > 0, "the signature");
    } while (!isOfFullLength(made));
}

Extensions serverExtensions(const QStringList& dnsNames)
{
    return { { NID_subject_alt_name, "DNS:" + dnsNames.join(",DNS:").toUtf8() } };
}

ServerCertificate written(const QString& path, X509* certificate, EVP_PKEY* key)
{
    const QByteArray certificatePem = pemOf(certificate);
    const QByteArray keyPem = pemOf(key);
    writeFile(path + ".pem", certificatePem);
    writeFile(path + ".key", keyPem);
    return { QSslCertificate(certificatePem), QSslKey(keyPem, QSsl::Ec), path + ".pem",
             path + ".key" };
}

} // namespace

CertificateAuthority::CertificateAuthority()
{
    // A name of its own, since the trust store finds authorities by name.
    const QByteArray id = QUuid::createUuid().toByteArray(QUuid::Id128);
    const Key key = makeKey();
    const Certificate own
        = blankCertificate("Throw-away authority " + id, Validity::longStanding());
    complete(
        own.get(), key.get(),
        { { NID_basic_constraints, "critical,CA:TRUE" },
          { NID_key_usage, "critical,keyCertSign,cRLSign" },
          { NID_subject_key_identifier, "hash" } },
        own.get(), key.get());
    written(file("authority"), own.get(), key.get());
}

ServerCertificate
CertificateAuthority::issue(const QStringList& dnsNames, const Validity& validity) const
{
    const Key key = makeKey();
    const Certificate made = blankCertificate(dnsNames.constFirst().toUtf8(), validity);
    complete(
        made.get(), key.get(), serverExtensions(dnsNames), certificateIn(certificateFile()).get(),
        keyIn(file("authority.key")).get());
    return written(file(QUuid::createUuid().toString(QUuid::Id128)), made.get(), key.get());
}

ServerCertificate CertificateAuthority::selfSigned(const QStringList& dnsNames) const
{
    const Key key = makeKey();
    const Certificate made = blankCertificate(dnsNames.constFirst().toUtf8(), Validity::current());
    complete(made.get(), key.get(), serverExtensions(dnsNames), made.get(), key.get());
    return written(file(QUuid::createUuid().toString(QUuid::Id128)), made.get(), key.get());
}

void CertificateAuthority::installInTrustStore() const
{
    const QByteArray der = QSslCertificate(readFile(certificateFile())).toDer();
    HCERTSTORE store = CertOpenSystemStoreW(0, L"ROOT");
    const bool added = CertAddEncodedCertificateToStore(
                           store, X509_ASN_ENCODING, reinterpret_cast<const BYTE*>(der.constData()),
                           static_cast<DWORD>(der.size()), CERT_STORE_ADD_ALWAYS, nullptr)
        != 0;
    if (!added || CertCloseStore(store, 0) == 0)
        qFatal("cannot install a certificate authority");
}

} // namespace TestSupport
