#pragma once

#include "tests/support/certificateauthority.h"

#include <QString>
#include <QStringList>

namespace TestSupport {

/// The openssl program in a folder, where it certifies what any key there asks for. Every
/// failure ends the process.
class Openssl {
public:
    /// Writes its settings into the folder. Their sections "authority" and "server" say what
    /// a certificate is for.
    explicit Openssl(const QString& folder);

    void run(const QStringList& arguments) const;

    /// Asks for a certificate with this name; `key` says where the key is, or comes from.
    void request(const QString& name, const QString& requestFile, const QStringList& key) const;

    struct Certificate {
        QString requestFile;
        QString file;
        Validity validity;
        QString section;
    };
    /// `signer` says by whose certificate and key.
    void certify(const Certificate& wanted, const QStringList& signer) const;

private:
    QString folder;
};

} // namespace TestSupport
