#include "publisher/check/checkentries.h"

#include "publisher/check/rehearsaltree.h"
#include "publisher/common/names.h"
#include "publisher/common/placeholder.h"
#include "publisher/common/serverlayout.h"

#include <QHash>
#include <QRegularExpression>
#include <QSettings>
#include <QUrl>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

// MD5 of nothing.
constexpr QLatin1StringView emptyFileHash("d41d8cd98f00b204e9800998ecf8427e");

/// Number of the highest entry that any key names, far numbers cut.
class Numbering {
public:
    explicit Numbering(const CheckedManifest& checked)
        : manifest(checked)
        , settings(checked.path, QSettings::IniFormat)
    {
        const QStringList keys = settings.childKeys();
        for (const QString& key : keys) {
            const qint64 n = PatchManifest::entryOfKey(key);
            if (n > 0)
                numbers.insert(n);
            last = std::max(last, n);
        }
    }

    QList<Finding> findings() const
    {
        QList<Finding> found;
        checkCount(found);
        checkGaps(found);
        return found;
    }

    bool isListed(qint64 n) const
    {
        return numbers.contains(n);
    }

private:
    void checkCount(QList<Finding>& found) const
    {
        static const QRegularExpression digits(u"^[0-9]+$"_s);
        if (!settings.contains("numberOfFiles")) {
            add(found, FindingId::CountMissing,
                u"numberOfFiles is missing: the launcher handles no entry at all."_s);
            return;
        }
        const QString text = settings.value("numberOfFiles").toString();
        bool isNumber = false;
        const qint64 count = text.toInt(&isNumber);
        if (!isNumber || !digits.match(text).hasMatch())
            add(found, FindingId::CountMisread,
                u"numberOfFiles is \"%1\", which the launcher reads as %2."_s.arg(
                    text.left(40), QString::number(count)));
        else if (count < last)
            add(found, FindingId::CountTooSmall,
                "numberOfFiles is "_L1 + text + ", but the entries go up to "_L1
                    + QString::number(last) + ": players do not get the last ones."_L1);
        else if (count > last)
            add(found, FindingId::CountTooLarge,
                "numberOfFiles is "_L1 + text + ", but the last entry is "_L1
                    + QString::number(last)
                    + ": for the numbers beyond it the launcher handles files without a name."_L1);
        else if (count > manifest.content.count())
            add(found, FindingId::CountTooLarge,
                "numberOfFiles is "_L1 + text
                    + ", and at most of the numbers there is nothing: the launcher's window "
                      "freezes while it walks them, and only the first "_L1
                    + QString::number(manifest.content.count()) + " are checked here."_L1);
    }

    void checkGaps(QList<Finding>& found) const
    {
        QList<qint64> gaps;
        const qint64 end = std::min(last, manifest.content.count());
        for (qint64 n = 1; n <= end; ++n) {
            if (!isListed(n))
                gaps.append(n);
        }
        if (gaps.isEmpty())
            return;
        found.append(manifest.finding(
            FindingId::NumberingGap, gaps.first(),
            "There is nothing at number "_L1 + Findings::numberList(gaps)
                + ": the launcher handles a file without a name there, and removals find no name."_L1));
    }

    void add(QList<Finding>& found, FindingId id, const QString& text) const
    {
        found.append(manifest.finding(id, 0, text));
    }

    const CheckedManifest& manifest;
    QSettings settings;
    QSet<qint64> numbers;
    qint64 last = 0;
};

/// Whether the path leaves the folder it starts in, at any point of the way.
bool escapes(const QStringList& names)
{
    int depth = 0;
    for (const QString& name : names) {
        if (name == ".."_L1 && --depth < 0)
            return true;
        depth += name == "."_L1 || name == ".."_L1 ? 0 : 1;
    }
    return false;
}

/// One entry's own properties.
class EntryCheck {
public:
    EntryCheck(
        const CheckedManifest& checked, const CheckedPlayers& checkedFor, qint64 number,
        QList<Finding>& findings)
        : manifest(checked)
        , players(checkedFor)
        , n(number)
        , entry(checked.content.entry(number))
        , found(findings)
    {
    }

    void run()
    {
        checkName();
        checkPath();
        checkWindowsNames();
        if (entry.action() != PatchAction::FileDownload || isPlaceholder(entry))
            return;
        checkHash();
        checkUrl();
    }

private:
    void add(FindingId id, const QString& text)
    {
        found.append(manifest.finding(id, n, text));
    }

    QString named() const
    {
        return u'"' + entry.name + u'"';
    }

    QString pathAndName() const
    {
        return u"The path \"%1\" with the name \"%2\""_s.arg(entry.pathOffset, entry.name);
    }

    QStringList components(const QString& path) const
    {
        return RehearsalTree::split(path, players.separator);
    }

    QStringList allComponents() const
    {
        return components(entry.pathOffset) + components(entry.name);
    }

    void checkName()
    {
        if (entry.name.isEmpty())
            add(FindingId::NameMissing,
                u"The entry has no name: the launcher handles the whole folder where a file or "
                "folder is meant."_s);
        else if (components(entry.name) != QStringList{ entry.name })
            add(FindingId::NameNotOneComponent,
                "The name "_L1 + named()
                    + " holds a folder; the server is asked for another "
                      "address than the path suggests, and a removal acts elsewhere."_L1);
    }

    void checkPath()
    {
        const QStringList names = allComponents();
        static const QRegularExpression drive(u"^[A-Za-z]:"_s);
        if (entry.pathOffset.startsWith(u'/') || entry.pathOffset.startsWith(players.separator)
            || drive.match(entry.pathOffset).hasMatch())
            add(FindingId::AbsolutePath,
                u"The path offset \"%1\" looks absolute, but the launcher puts it behind the "
                "client folder."_s.arg(entry.pathOffset));
        if (escapes(names))
            add(FindingId::PathEscapes,
                pathAndName() + " leads out of the client folder and out of the patch cache."_L1);
        else if (isDotted(names))
            add(FindingId::PathDotted,
                pathAndName()
                    + u" takes a detour over \".\" or \"..\", which fails where a folder on the "
                      "way is missing."_s);
        if (players.separator == u'/' && (entry.pathOffset + entry.name).contains(u'\\'))
            add(FindingId::SeparatorForeign,
                pathAndName()
                    + " holds a backslash, which these players' system takes for a letter."_L1);
    }

    /// A lone "." is how an offset says "the client folder itself".
    bool isDotted(const QStringList& names) const
    {
        const QStringList counted = entry.pathOffset == "."_L1 ? names.mid(1) : names;
        return counted.contains("."_L1) || counted.contains(".."_L1);
    }

    void checkWindowsNames()
    {
        if (players.separator != u'\\')
            return;
        const QStringList names = allComponents();
        for (const QString& name : names) {
            const QString fault
                = name == "."_L1 || name == ".."_L1 ? QString() : whyNotOnWindows(name);
            if (fault.isEmpty())
                continue;
            add(FindingId::NameNotForWindows,
                u"Windows cannot hold a file or folder named \"%1\", which %2."_s.arg(
                    name.left(40), fault));
            return;
        }
    }

    void checkHash()
    {
        static const QRegularExpression md5(u"^[0-9a-f]{32}$"_s);
        if (entry.hash.isEmpty())
            add(FindingId::HashMissing,
                named()
                    + " has no hash: players never download it, and the file of that name "
                      "in their client is deleted."_L1);
        else if (!md5.match(entry.hash.toLower()).hasMatch())
            add(FindingId::HashMalformed,
                u"%1 has the hash \"%2\", which is no MD5: players download the file at every "
                "start."_s.arg(named(), entry.hash.left(40)));
        else if (entry.hash != entry.hash.toLower())
            add(FindingId::HashUppercase,
                named()
                    + " has a hash in upper case, which never matches: players download the "
                      "file at every start."_L1);
        else if (entry.hash == emptyFileHash)
            add(FindingId::FileEmpty,
                named()
                    + " is an empty file: the launcher stores no empty answer, and the file "
                      "of that name in players' clients is deleted."_L1);
    }

    void checkUrl()
    {
        if (entry.name.isEmpty() || !ServerLayout::statedPath(manifest.kind, entry).isEmpty())
            return;
        const QString asked = ServerLayout::askedPath(manifest.kind, entry);
        const QString meant
            = QUrl::fromPercentEncoding(entry.urlOffset.toUtf8()) + u'/' + entry.name;
        add(FindingId::UrlChanged,
            u"The launcher asks for %1, which is not where \"%2\" lies."_s.arg(
                asked.isEmpty() ? u"nothing of the kind"_s : u'"' + asked + u'"', meant));
    }

    const CheckedManifest& manifest;
    const CheckedPlayers& players;
    qint64 n;
    const PatchManifestEntry& entry;
    QList<Finding>& found;
};

/// Entries that are installed at the same place.
class Targets {
public:
    Targets(const CheckedManifest& checked, QChar pathSeparator, QList<Finding>& findings)
        : manifest(checked)
        , separator(pathSeparator)
        , found(findings)
    {
    }

    void take(qint64 n)
    {
        const PatchManifestEntry& entry = manifest.content.entry(n);
        if (!entry.save || entry.name.isEmpty() || isPlaceholder(entry))
            return;
        const QString place
            = RehearsalTree::canonical(entry.pathOffset + u'/' + entry.name, separator);
        const auto earlier = takenBy.constFind(place);
        if (earlier == takenBy.cend())
            takenBy.insert(place, n);
        else
            compare(*earlier, n);
    }

private:
    void compare(qint64 first, qint64 second)
    {
        const bool isFolder = manifest.content.entry(second).dirOnly;
        const QString both
            = "Entry "_L1 + QString::number(first) + " and this one have the same place: "_L1;
        if (manifest.content.entry(first).dirOnly != isFolder)
            found.append(manifest.finding(
                FindingId::TargetConflict, second,
                both + u"one wants a file there, the other a folder."_s));
        else if (!isFolder)
            found.append(manifest.finding(
                FindingId::DuplicateTarget, second,
                both
                    + u"players get the later one, and where the hashes differ they download "
                      "both at every start."_s));
    }

    const CheckedManifest& manifest;
    QChar separator;
    QList<Finding>& found;
    QHash<QString, qint64> takenBy;
};

} // namespace

namespace CheckEntries {

QList<Finding> findings(const CheckedManifest& manifest, const CheckedPlayers& players)
{
    const Numbering numbering(manifest);
    QList<Finding> found = numbering.findings();
    Targets targets(manifest, players.separator, found);
    for (qint64 n = 1; n <= manifest.content.count(); ++n) {
        if (!numbering.isListed(n))
            continue;
        EntryCheck(manifest, players, n, found).run();
        targets.take(n);
    }
    return found;
}

} // namespace CheckEntries

} // namespace Publisher
