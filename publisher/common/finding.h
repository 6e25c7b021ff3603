#pragma once

#include <QJsonObject>
#include <QList>
#include <QString>

namespace Publisher {

/// Everything that `check` and `probe` can find. The identifiers are stable:
/// admins write them into scripts and accept them by name.
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
    FileMissing,
    FileUnreachable,
    LauncherFileMissing,
    LengthMissing,
    LengthWrong,
    RedirectInsecure,
    ErrorPage,
    MissingFileAnswered,
    ContentEncoded,
    LaterDateAnsweredInFull,
    ExactDateAnsweredInFull,
    EarlierDateNotAnswered,
    PatchFileNotModified,
    DateAhead,
    CachedTooLong,
    NotAProgram,
    DiffersFromTree,
    MissingInTree,
    // The text in the launcher's window.
    InfoMissing,
    InfoFreezes,
};

/// One thing that would go wrong for players, and the way out of it.
struct Finding {
    FindingId id;
    /// Manifest, file or address the finding is about.
    QString subject;
    /// Number of the manifest's entry, 0 when it is about none in particular.
    qint64 entry = 0;
    /// One sentence or two: what is so, and what it does to players.
    QString text;

    /// Stable, lower-case words with hyphens, such as "removal-from-root".
    QString identifier() const;
    /// What the admin can do about it.
    QString wayOut() const;
};

namespace Findings {

/// Every identifier in the order of the enumeration.
QStringList identifiers();
/// How the finding is shown, above its way out.
QString toText(const Finding& finding);
QJsonObject toJson(const Finding& finding);
/// "1", "2 and 3", "1, 2 and 5 to 8".
QString numberList(const QList<qint64>& ascending);

} // namespace Findings

} // namespace Publisher
