#include "publisher/common/finding.h"

#include <QStringList>

#include <array>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

struct Description {
    FindingId id;
    const char* identifier;
    const char* remedy;
};

constexpr std::array descriptions{
    Description{
        FindingId::ManifestMissing, "manifest-missing",
        "Publish it with `halden-publish build`, which writes the manifest into the served "
        "folder, beside wow-client-patch." },
    Description{ FindingId::ManifestMalformed, "manifest-malformed",
                 "Write it as an INI file in UTF-8, or let `halden-publish build` write it." },
    Description{ FindingId::ValueMisread, "value-misread",
                 "Put the value in double quotes and write \\\\ for each backslash and \\\" for "
                 "each quote in it." },
    Description{ FindingId::BooleanMisread, "boolean-misread", "Write true or false." },
    Description{ FindingId::KeyUnknown, "key-unknown",
                 "Correct the spelling, upper and lower case included, or drop the line." },
    Description{ FindingId::KeyInSection, "key-in-section",
                 "Move the line above every section, or into the section [General]." },
    Description{ FindingId::KeyRepeated, "key-repeated", "Keep one of the lines." },
    Description{ FindingId::CountMissing, "count-missing",
                 "Set numberOfFiles to the number of the last entry." },
    Description{ FindingId::CountMisread, "count-misread",
                 "Set numberOfFiles to the number of the last entry, in plain digits." },
    Description{ FindingId::CountTooSmall, "count-too-small",
                 "Set numberOfFiles to the number of the last entry." },
    Description{ FindingId::CountTooLarge, "count-too-large",
                 "Set numberOfFiles to the number of the last entry." },
    Description{ FindingId::NumberingGap, "numbering-gap",
                 "Number the entries without gaps, in the same order." },
    Description{ FindingId::NameMissing, "name-missing",
                 "Give the entry a name, or drop it and number the later ones anew." },
    Description{ FindingId::NameNotOneComponent, "name-not-one-component",
                 "Put the folders into the path offset and leave the bare name." },
    Description{ FindingId::NameNotForWindows, "name-not-for-windows",
                 "Rename the file or folder." },
    Description{ FindingId::PathEscapes, "path-escapes",
                 "Write the path relative to the client folder, without \"..\"." },
    Description{ FindingId::PathDotted, "path-dotted", R"(Write the path without "." and "..".)" },
    Description{ FindingId::AbsolutePath, "absolute-path",
                 "Write the path relative to the client folder." },
    Description{ FindingId::SeparatorForeign, "separator-foreign",
                 "Write the path with the separator of the players' system." },
    Description{ FindingId::UrlChanged, "url-changed",
                 "Rename the file so that its name has no #, ?, % or backslash; in a url offset "
                 "write %23, %3F, %25." },
    Description{ FindingId::DuplicateTarget, "duplicate-target", "Keep one of the entries." },
    Description{ FindingId::TargetConflict, "target-conflict",
                 "Rename one of the two, or drop its entry." },
    Description{ FindingId::FolderMissing, "folder-missing",
                 "Add a folder entry (dirOnly=true) for it above the file's entry." },
    Description{ FindingId::FolderTooLate, "folder-too-late",
                 "Move the folder's entry above the file's." },
    Description{ FindingId::FileAsFolder, "file-as-folder",
                 "Rename one of the two, or move the file elsewhere." },
    Description{ FindingId::HashMissing, "hash-missing",
                 "Set the hash to the file's MD5, 32 lower-case hexadecimal digits." },
    Description{ FindingId::HashUppercase, "hash-uppercase", "Write the hash in lower case." },
    Description{ FindingId::HashMalformed, "hash-malformed",
                 "Set the hash to the file's MD5, 32 lower-case hexadecimal digits." },
    Description{ FindingId::HashMismatch, "hash-mismatch",
                 "Publish the right file, or set the hash to the MD5 of the one that is there." },
    Description{ FindingId::FileEmpty, "file-empty",
                 "Publish a file of at least one byte, or drop the entry." },
    Description{
        FindingId::FileNotPublished, "file-not-published",
        "Publish again with `halden-publish build`, which puts the file there; in a manifest "
        "written by hand, correct the url offset." },
    Description{ FindingId::RemovalNeverEffective, "removal-never-effective",
                 "Let entries 1 to the largest number of realms that players have all bear the "
                 "name that is to go, and let no entry put it back." },
    Description{ FindingId::RemovalHitsInstalledFile, "removal-hits-installed-file",
                 "Move the removal above the entry that installs it, or drop one of the two." },
    Description{ FindingId::RemovalHitsOtherName, "removal-hits-other-name",
                 "Let entries 1 to the largest number of realms that players have all bear the "
                 "name that is to go." },
    Description{ FindingId::RemovalEmptiesFolder, "removal-empties-folder",
                 "Do not publish this. Let every entry from 1 to the largest number of realms "
                 "that players have bear a name." },
    Description{ FindingId::RemovalFromRoot, "removal-from-root",
                 "Remove only what nobody has at that path from the root, or put the removal at "
                 "a number that every player has a realm for." },
    Description{ FindingId::ServerUnreachable, "server-unreachable",
                 "Check the address, the name server, the firewall and that the server runs." },
    Description{ FindingId::ServerWithoutTls, "server-without-tls",
                 "Serve over https; launchers ask no other way." },
    Description{ FindingId::TlsVersionMissing, "tls-1.2-missing",
                 "Offer TLS 1.2 (nginx: ssl_protocols TLSv1.2 TLSv1.3;)." },
    Description{ FindingId::CertificateUntrusted, "certificate-untrusted",
                 "Install a certificate for this host name from a public authority, with its "
                 "intermediate certificates." },
    Description{ FindingId::CertificateExpiring, "certificate-expiring",
                 "Renew the certificate, and see why it was not renewed by itself." },
    Description{ FindingId::CertificateRootYoung, "certificate-root-young",
                 "Ask the authority for a chain that ends in an older root, by a cross-signature "
                 "for instance, or take another authority." },
    Description{ FindingId::CertificateChainIncomplete, "certificate-chain-incomplete",
                 "Serve the file with the whole chain (certbot's fullchain.pem), not the "
                 "certificate alone." },
    Description{ FindingId::CrossSignatureEnding, "cross-signature-ending",
                 "Renew the certificate with a chain whose cross-signature lasts longer, or, where "
                 "every player has the newer root, with one that goes without." },
    Description{
        FindingId::FileMissing, "file-missing",
        "Publish again with `halden-publish build`, which puts it there, and copy the folder "
        "to the server if it lies elsewhere." },
    Description{ FindingId::FileUnreachable, "file-unreachable",
                 "Ask for the address with a browser and read the server's error log." },
    Description{ FindingId::LauncherFileMissing, "launcher-file-missing",
                 "Publish it with `halden-publish build-launcher`." },
    Description{ FindingId::LengthMissing, "length-missing",
                 "Serve plain files, without compressing or chunking on the way." },
    Description{ FindingId::LengthWrong, "length-wrong",
                 "Upload the file again, and purge it from any cache in front of the server." },
    Description{ FindingId::RedirectInsecure, "redirect-insecure",
                 "Redirect to https only, or not at all." },
    Description{ FindingId::ErrorPage, "error-page",
                 "Let the server answer errors with their own status (404, 503)." },
    Description{ FindingId::MissingFileAnswered, "missing-file-answered",
                 "Let the server answer 404 for what does not exist (no catch-all page)." },
    Description{ FindingId::ContentEncoded, "content-encoded",
                 "Switch compression off for these files (nginx: gzip off;)." },
    Description{ FindingId::ManifestNotModified, "manifest-not-modified",
                 "Ignore If-Modified-Since for patch.ini and patchTest.ini (nginx: "
                 "if_modified_since off;)." },
    Description{ FindingId::LaterDateAnsweredInFull, "later-date-answered-in-full",
                 "Answer 304 for the launcher's files to every date that is not older, dates "
                 "ahead of the clock included, as the configurations in packaging/ do (nginx: "
                 "if_modified_since before;)." },
    Description{ FindingId::ExactDateAnsweredInFull, "exact-date-answered-in-full",
                 "Let the server honour If-Modified-Since for the launcher's files." },
    Description{ FindingId::EarlierDateNotAnswered, "earlier-date-not-answered",
                 "Send the file to whoever has an older one." },
    Description{ FindingId::PatchFileNotModified, "patch-file-not-modified",
                 "Ignore If-Modified-Since below wow-client-patch (nginx: if_modified_since "
                 "off;)." },
    Description{ FindingId::DateAhead, "date-ahead",
                 "Set the clocks right, this machine's and the server's. If an earlier publication "
                 "had a wrong one, `halden-publish build --renew` dates the manifest now, and "
                 "`build-launcher --renew` the launcher's files." },
    Description{ FindingId::CachedTooLong, "cached-too-long",
                 "Send Cache-Control: no-cache with everything but patch files (nginx: add_header "
                 "Cache-Control no-cache;)." },
    Description{ FindingId::NotAProgram, "not-a-program",
                 "Publish it with `halden-publish build-launcher`, and purge it from any cache in "
                 "front of the server." },
    Description{ FindingId::DiffersFromTree, "differs-from-tree",
                 "Purge it from any cache in front of the server, and see that this tree is what "
                 "the server serves; copy it there if they are two." },
    Description{ FindingId::MissingInTree, "missing-in-tree",
                 "Name the folder that the server serves, or publish into this one with "
                 "`halden-publish build` and `build-launcher`." },
    Description{ FindingId::DiffersFromRecord, "differs-from-record",
                 "If you have published it, add it to the record with --record, and sign that. "
                 "If you have not, somebody else has: take the server off the net, find out how, "
                 "and publish anew from a machine that you trust." },
    Description{ FindingId::FormerFileServed, "former-file-served",
                 "Purge it from any cache in front of the server. If there is none, or you have "
                 "gone back yourself without --record, see to that as to `differs-from-record`." },
    Description{ FindingId::MissingInRecord, "missing-in-record",
                 "See to it as to `differs-from-record`: players get what is not on record." },
    Description{ FindingId::OnlyInRecord, "only-in-record",
                 "See to it as to `differs-from-record`: players do not get what is on record." },
    Description{ FindingId::BytesDiffer, "servers-differ-in-bytes",
                 "Push to all servers once more with `halden-publish push`, and purge the file "
                 "from any cache in front of one of them." },
    Description{ FindingId::DatesDiffer, "servers-differ-in-dates",
                 "Push to all servers once more with `halden-publish push`; for launcher files "
                 "run `halden-publish build-launcher --renew` before." },
    Description{ FindingId::InfoMissing, "info-missing",
                 "Write launcher.info into the served folder, a bit of HTML, and let the server "
                 "give it out at /alert." },
    Description{ FindingId::InfoFreezes, "info-freezes",
                 "Shorten the text, take out absurd numbers (widths, padding, sizes, spans) and "
                 "tables within tables." },
    Description{ FindingId::SourceEmpty, "source-empty", "Check the path." },
    Description{ FindingId::FolderUnreadable, "folder-unreadable",
                 "Give yourself the right to read and enter it, or see that its disk is well." },
    Description{ FindingId::FileUnreadable, "file-unreadable",
                 "Give yourself the right to read it and to enter its folder, or see that its "
                 "disk is well." },
    Description{ FindingId::NotAFile, "not-a-file", "Remove it." },
    Description{ FindingId::LinkLeadsOut, "link-leads-out", "Put what it means in its place." },
    Description{ FindingId::LinkInCircles, "link-in-circles", "Remove it." },
    Description{ FindingId::NameNotUnicode, "name-not-unicode", "Rename it." },
    Description{ FindingId::NameReserved, "name-reserved", "Rename it." },
    Description{ FindingId::NameNotForUrls, "name-not-for-urls", "Rename it." },
    Description{ FindingId::NamesDifferInCase, "names-differ-in-case", "Rename one." },
    Description{ FindingId::RemovalPath, "removal-path",
                 "Give a path below the client folder, such as Data/deDE/patch-x.mpq." },
    Description{ FindingId::RemovalInSource, "removal-in-source",
                 "Take it out of the source first." },
    Description{ FindingId::RemovalSecondName, "removal-second-name",
                 "What works: put a file of a few bytes in its place in the source, which "
                 "overwrites it for every player; or remove the folder that holds both; or remove "
                 "it with a later publication, which players who skip the present one do not "
                 "get." },
    Description{ FindingId::FileWasFolder, "file-was-folder", "Give the file another name." },
    Description{ FindingId::FolderWasFile, "folder-was-file", "Give the folder another name." },
    Description{ FindingId::ManyRemoved, "many-removed",
                 "If this is not the right folder, or not all of it is there, see to that; if it "
                 "is meant, say so with --yes-remove and the number." },
    Description{ FindingId::FileWrong, "file-wrong",
                 "Publish the source folder of that time with build." },
};

const Description& describe(FindingId id)
{
    return descriptions.at(static_cast<std::size_t>(id));
}

constexpr bool isInOrder()
{
    for (std::size_t i = 0; i < descriptions.size(); ++i) {
        if (descriptions[i].id != static_cast<FindingId>(i))
            return false;
    }
    return static_cast<std::size_t>(FindingId::FileWrong) + 1 == descriptions.size();
}
static_assert(isInOrder(), "the table follows the enumeration");

/// "5 to 8", or the single number.
QString range(qint64 first, qint64 last)
{
    const QString number = QString::number(first);
    return first == last ? number : number + " to "_L1 + QString::number(last);
}

} // namespace

QString Finding::identifier() const
{
    return QString::fromLatin1(describe(id).identifier);
}

QString Finding::remedy() const
{
    return ownRemedy.isEmpty() ? QString::fromLatin1(describe(id).remedy) : ownRemedy;
}

namespace Findings {

QList<std::pair<QString, QString>> all()
{
    QList<std::pair<QString, QString>> rows;
    for (const Description& description : descriptions)
        rows.append({ QString::fromLatin1(description.identifier),
                      QString::fromLatin1(description.remedy) });
    return rows;
}

QStringList ofInspection()
{
    QStringList identifiers;
    for (const Description& description : descriptions) {
        if (description.id <= FindingId::InfoFreezes)
            identifiers.append(QString::fromLatin1(description.identifier));
    }
    return identifiers;
}

QString toText(const Finding& finding)
{
    const QString entry
        = finding.entry > 0 ? u", entry "_s + QString::number(finding.entry) : QString();
    return finding.subject + entry + ": "_L1 + finding.text + " ["_L1 + finding.identifier() + u']';
}

QJsonObject toJson(const Finding& finding)
{
    QJsonObject object{
        { u"id"_s, finding.identifier() },
        { u"subject"_s, finding.subject },
        { u"text"_s, finding.text },
        { u"wayOut"_s, finding.remedy() },
    };
    if (finding.entry > 0)
        object.insert(u"entry"_s, finding.entry);
    return object;
}

QString numberList(const QList<qint64>& ascending)
{
    QStringList parts;
    for (qsizetype i = 0; i < ascending.size();) {
        qsizetype end = i;
        while (end + 1 < ascending.size() && ascending[end + 1] == ascending[end] + 1)
            ++end;
        if (end == i + 1)
            end = i; // two neighbours read better as single numbers
        parts.append(range(ascending[i], ascending[end]));
        i = end + 1;
    }
    const QString last = parts.isEmpty() ? QString() : parts.takeLast();
    return parts.isEmpty() ? last : parts.join(", "_L1) + " and "_L1 + last;
}

} // namespace Findings

} // namespace Publisher
