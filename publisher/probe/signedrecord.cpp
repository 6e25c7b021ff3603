#include "publisher/probe/signedrecord.h"

#include <QFileInfo>
#include <QProcess>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

/// What is missing, before minisign says it in its own way.
Problem faultOfFiles(const QString& path, const QString& key)
{
    if (!QFileInfo(path).isFile())
        return u"there is no record %1; build --record writes one"_s.arg(path);
    if (!QFileInfo(key).isFile())
        return u"there is no public key %1; `minisign -G` makes one, minisign.pub"_s.arg(key);
    if (!QFileInfo(path + ".minisig"_L1).isFile())
        return u"the record %1 has no signature: sign it on the machine that publishes, with "
               "`minisign -Sm %1`, and bring %1.minisig along"_s.arg(path);
    return {};
}

} // namespace

SignedRecord SignedRecord::read(const QString& path, const QString& key)
{
    SignedRecord read;
    read.problem = faultOfFiles(path, key);
    if (read.problem)
        return read;
    QProcess minisign;
    // Its output is the record, so that nothing else is read than what it has seen.
    minisign.start(u"minisign"_s, { u"-V"_s, u"-q"_s, u"-o"_s, u"-p"_s, key, u"-m"_s, path });
    if (!minisign.waitForFinished(-1)) {
        read.problem = u"minisign, which looks at the record's signature, cannot be started; "
                       "install Debian's package minisign"_s;
    } else if (minisign.exitStatus() != QProcess::NormalExit || minisign.exitCode() != 0) {
        read.problem = u"the signature of the record %1 does not match it and the key %2: if the "
                       "record has grown since, sign it anew with `minisign -Sm %1`; if not, it "
                       "is not the one that you have signed"_s.arg(path, key);
    } else if (const Problem unread = read.record.read(minisign.readAllStandardOutput())) {
        read.problem
            = u"%1: %2. Take the record that build --record has written"_s.arg(path, *unread);
    }
    return read;
}

} // namespace Publisher
