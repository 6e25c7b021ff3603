#include "publisher/fleet/fleetfile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSet>
#include <QStringDecoder>

#include <algorithm>
#include <array>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

constexpr std::array keys{ "remote"_L1, "address"_L1, "connect"_L1 };

QString listOfKeys()
{
    return u"remote, address and connect"_s;
}

/// Reads line by line, and goes on behind a fault, so that all are told at once.
class Reader {
public:
    explicit Reader(FleetFile& target)
        : file(target)
    {
    }

    void read(const QString& text)
    {
        const QStringList all = text.split(u'\n');
        for (const QString& line : all) {
            ++number;
            take(line.trimmed());
        }
        closeSection();
        if (file.servers.isEmpty() && file.faults.isEmpty())
            complain(1, u"there is no server; begin one with its name in brackets"_s);
    }

private:
    void complain(int line, const QString& sentence)
    {
        file.faults.append(u"%1:%2: %3"_s.arg(file.name).arg(line).arg(sentence));
    }

    void take(const QString& line)
    {
        if (line.isEmpty() || line.startsWith(u'#') || line.startsWith(u';'))
            return;
        if (line.startsWith(u'['))
            openSection(line);
        else
            takeValue(line);
    }

    void openSection(const QString& line)
    {
        closeSection();
        static const QRegularExpression pattern(u"^\\[([A-Za-z0-9][A-Za-z0-9._-]*)\\]$"_s);
        server = {};
        server.name = pattern.match(line).captured(1);
        sectionLine = number;
        isOpen = true;
        isNamed = !server.name.isEmpty();
        if (!isNamed)
            complain(
                number,
                u"a server's name is letters, digits, \".\", \"_\" and \"-\" in "
                "brackets, such as [north]"_s);
        else if (names.contains(server.name))
            complain(
                number,
                u"there is a server \"%1\" already; give this one another name"_s.arg(server.name));
        names.insert(server.name);
    }

    void closeSection()
    {
        if (!isOpen)
            return;
        for (const QLatin1StringView key : keys) {
            if (isNamed && !lines.contains(key))
                complain(
                    sectionLine,
                    u"server \"%1\" has no %2; each has %3"_s.arg(server.name, key, listOfKeys()));
        }
        file.servers.append(server);
        file.linesOfRemotes.append(lines.value(u"remote"_s, sectionLine));
        lines.clear();
        isOpen = false;
    }

    void takeValue(const QString& line)
    {
        const qsizetype equals = line.indexOf(u'=');
        const QString key = line.first(std::max<qsizetype>(equals, 0)).trimmed();
        const QString value = line.sliced(equals + 1).trimmed();
        if (equals < 0)
            complain(number, u"this is neither [name] nor key=value"_s);
        else if (!isOpen)
            complain(
                number,
                u"\"%1\" stands before the first server; begin one with its name in "
                "brackets"_s.arg(key));
        else if (std::find(keys.begin(), keys.end(), key) == keys.end())
            complain(number, u"there is no key \"%1\"; a server has %2"_s.arg(key, listOfKeys()));
        else if (lines.contains(key))
            complain(
                number,
                u"%1 stands in line %2 already; keep one of the two"_s.arg(key).arg(
                    lines.value(key)));
        else
            takeKey(key, value);
    }

    void takeKey(const QString& key, const QString& value)
    {
        lines.insert(key, number);
        if (key == "remote"_L1)
            takeRemote(value);
        else if (key == "address"_L1)
            takeAddress(value);
        else
            takeConnect(value);
    }

    void takeRemote(const QString& value)
    {
        server.remote = value;
        const bool isLocal = isLocalFolder(value);
        if (!isLocal && !value.contains(u':')) {
            complain(
                number,
                u"\"%1\" is neither a remote of rclone's with its path, such as "
                "north:/srv/halden, nor a path from the root"_s.arg(value));
            return;
        }
        const QString same = isLocal ? QDir::cleanPath(value) : value;
        if (remotes.contains(same))
            complain(number, u"another server has the remote %1; each needs its own"_s.arg(value));
        remotes.insert(same);
    }

    void takeAddress(const QString& value)
    {
        server.address = QUrl(value, QUrl::StrictMode);
        if (!server.address.isValid() || server.address.scheme() != "https"_L1
            || server.address.host().isEmpty() || !value.endsWith(u'/') || server.address.hasQuery()
            || server.address.hasFragment())
            complain(
                number,
                u"\"%1\" is not where launchers ask; give an address that begins "
                "with https:// and ends in a slash"_s.arg(value));
    }

    void takeConnect(const QString& value)
    {
        static const QRegularExpression between(u"[\\s,]+"_s);
        const QStringList parts = value.split(between, Qt::SkipEmptyParts);
        if (parts.isEmpty())
            complain(number, u"connect names no address; give one such as 192.0.2.10:443"_s);
        for (const QString& part : parts)
            takeConnectAddress(part);
    }

    void takeConnectAddress(const QString& text)
    {
        const auto address = ConnectAddress::read(text);
        if (!address) {
            complain(
                number,
                u"\"%1\" is no address with a port; give one such as 192.0.2.10:443 "
                "or [2001:db8::10]:443"_s.arg(text));
            return;
        }
        if (addresses.contains(address->text()))
            complain(
                number,
                u"%1 stands here twice; each server has addresses of its own"_s.arg(
                    address->text()));
        addresses.insert(address->text());
        server.connect.append(*address);
    }

    FleetFile& file;
    int number = 0;
    bool isOpen = false;
    bool isNamed = false;
    int sectionLine = 0;
    FleetServer server;
    /// Of the present section's keys.
    QHash<QString, int> lines;
    QSet<QString> names;
    QSet<QString> remotes;
    QSet<QString> addresses;
};

/// "north:" of "north:/srv/halden"; options in between are none of its name.
QString nameOfRemote(const QString& remote)
{
    static const QRegularExpression end(u"[,:]"_s);
    return remote.first(remote.indexOf(end, 1)) + u':';
}

bool isSameFolder(const QString& one, const QString& other)
{
    const QString canonical = QFileInfo(one).canonicalFilePath();
    return !canonical.isEmpty() && canonical == QFileInfo(other).canonicalFilePath();
}

} // namespace

bool isLocalFolder(const QString& remote)
{
    return QDir::isAbsolutePath(remote) && !remote.startsWith(u':');
}

FleetFile FleetFile::read(const QString& path)
{
    FleetFile fleet;
    fleet.name = QFileInfo(path).fileName();
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        fleet.faults.append(
            u"%1 cannot be read: %2. Name the list of your servers with --fleet"_s.arg(
                path, file.errorString()));
        return fleet;
    }
    QStringDecoder decoder(QStringDecoder::Utf8);
    const QString text = decoder(file.readAll());
    if (decoder.hasError()) {
        fleet.faults.append(u"%1 is no text in UTF-8; write it as such"_s.arg(path));
        return fleet;
    }
    return parse(text, fleet.name);
}

FleetFile FleetFile::parse(const QString& text, const QString& fileName)
{
    FleetFile fleet;
    fleet.name = fileName;
    Reader(fleet).read(text);
    return fleet;
}

QStringList FleetFile::faultsOfRemotes(const QStringList& known, const QString& tree) const
{
    QStringList found;
    for (qsizetype i = 0; i < servers.size(); ++i) {
        const QString& remote = servers.at(i).remote;
        const QString place = u"%1:%2: "_s.arg(name).arg(linesOfRemotes.at(i));
        if (isLocalFolder(remote) && isSameFolder(remote, tree))
            found.append(
                place
                + u"%1 is the folder that is pushed; publish into one that nobody serves"_s.arg(
                    remote));
        else if (!isLocalFolder(remote) && !known.contains(nameOfRemote(remote)))
            found.append(
                place
                + u"rclone knows no remote \"%1\"; make it with `rclone config`, or correct the "
                  "name"_s.arg(nameOfRemote(remote)));
    }
    return found;
}

} // namespace Publisher
