#pragma once

#include <QJsonObject>
#include <QList>
#include <QString>

#include <utility>

namespace Publisher {

/// Everything that can be wrong with what is, or would be, published. The
/// identifiers are stable: admins write them into scripts and accept those of
/// `check` and `probe` by name.
enum class FindingId {
    // How the manifest's text is read.
    ManifestMissing,
    ManifestMalformed,
    ValueMisread,
    BooleanMisread,
    KeyUnknown,
    KeyInSection,
    KeyRepeated,
    // Its numbering.
    CountMissing,
    CountMisread,
    CountTooSmall,
    CountTooLarge,
    NumberingGap,
    // Names and paths.
    NameMissing,
    NameNotOneComponent,
    NameNotForWindows,
    PathEscapes,
    PathDotted,
    AbsolutePath,
    SeparatorForeign,
    UrlChanged,
    DuplicateTarget,
    TargetConflict,
    FolderMissing,
    FolderTooLate,
    FileAsFolder,
    // Hashes and the published files.
    HashMissing,
    HashUppercase,
    HashMalformed,
    HashMismatch,
    FileEmpty,
    FileNotPublished,
    // What removals do.
    RemovalNeverEffective,
    RemovalHitsInstalledFile,
    RemovalHitsOtherName,
    RemovalEmptiesFolder,
    RemovalFromRoot,
    // The live server.
    ServerUnreachable,
    ServerWithoutTls,
    TlsVersionMissing,
    CertificateUntrusted,
    CertificateExpiring,
    CertificateRootYoung,
    CertificateChainIncomplete,
    CrossSignatureEnding,
    FileMissing,
    FileUnreachable,
    LauncherFileMissing,
    LengthMissing,
    LengthWrong,
    RedirectInsecure,
    ErrorPage,
    MissingFileAnswered,
    ContentEncoded,
    ManifestNotModified,
    LaterDateAnsweredInFull,
    ExactDateAnsweredInFull,
    EarlierDateNotAnswered,
    PatchFileNotModified,
    DateAhead,
    CachedTooLong,
    NotAProgram,
    DiffersFromTree,
    MissingInTree,
    DiffersFromRecord,
    FormerFileServed,
    MissingInRecord,
    OnlyInRecord,
    // Several servers of one name.
    BytesDiffer,
    DatesDiffer,
    // The text in the launcher's window.
    InfoMissing,
    InfoFreezes,
    // What alone keeps something from being published; some of the above do, too.
    SourceEmpty,
    FolderUnreadable,
    FileUnreadable,
    NotAFile,
    LinkLeadsOut,
    LinkInCircles,
    NameNotUnicode,
    NameReserved,
    NameNotForUrls,
    NamesDifferInCase,
    RemovalPath,
    RemovalInSource,
    RemovalSecondName,
    FileWasFolder,
    FolderWasFile,
    ManyRemoved,
    FileWrong,
};

/// One thing that would go wrong for players, and its remedy.
struct Finding {
    FindingId id;
    /// Manifest, file or address the finding is about, as the admin knows it.
    QString subject;
    /// Number of the manifest's entry, 0 when it is about none in particular.
    qint64 entry = 0;
    /// One sentence or two: what is so, and what it does to players.
    QString text;
    /// Where the usual remedy is not the one for this case.
    QString ownRemedy = {};

    /// Stable, lower-case words with hyphens, such as "removal-from-root".
    QString identifier() const;
    /// What the admin can do about it, as sentences.
    QString remedy() const;
};

namespace Findings {

/// Every identifier in the order of the enumeration, with the usual remedy.
QList<std::pair<QString, QString>> all();
/// The identifiers of what `check` and `probe` can find.
QStringList ofInspection();
/// How the finding is shown, above its remedy.
QString toText(const Finding& finding);
QJsonObject toJson(const Finding& finding);
/// "1", "2 and 3", "1, 2 and 5 to 8".
QString numberList(const QList<qint64>& ascending);

} // namespace Findings

} // namespace Publisher
