#pragma once

#include "publisher/common/finding.h"
#include "publisher/probe/probeanswer.h"

#include <QString>

#include <optional>

namespace Publisher {

struct PatchFile;

/// What launchers ask a server for.
enum class Served {
    Manifest,
    LauncherFile,
    PatchFile,
    /// The text in the launcher's window, which is a web page.
    InfoText,
};

/// One file that was asked for, as findings speak of it.
struct AskedFile {
    Served what;
    QString subject;
    /// Number of the manifest's entry, 0 for what stands in none.
    qint64 entry = 0;
};

/// What a single answer must be, whatever other answers say.
namespace AnswerRules {

struct Verdict {
    /// Of the first rule that is broken.
    std::optional<Finding> finding;
    /// The answer holds the file, so that its content can be judged.
    bool isUsable = true;
};

Verdict judge(const AskedFile& file, const ProbeAnswer& answer);

/// A server must not answer with a file where there is none.
std::optional<Finding> missingFile(const QString& name, const ProbeAnswer& answer);
/// The launcher's own files must be programs.
std::optional<Finding> program(const QString& name, const ProbeAnswer& answer);
/// A patch file must be what the manifest says; for answers read to their end.
std::optional<Finding> hash(const PatchFile& file, const QUrl& address, const ProbeAnswer& answer);

} // namespace AnswerRules

} // namespace Publisher
