#include "publisher/probe/answerrules.h"

#include "publisher/common/programfault.h"
#include "publisher/common/webpage.h"
#include "publisher/probe/servedmanifest.h"

#include <algorithm>
#include <array>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

/// Add-ons bring web pages of their own, which are no errors.
bool isNamedLikePage(const QUrl& url)
{
    const QString name = url.fileName().toLower();
    return name.endsWith(".html"_L1) || name.endsWith(".htm"_L1);
}

bool isForeignPage(const ProbeAnswer& answer, Served what)
{
    return what != Served::InfoText && isWebPage(answer.body) && !isNamedLikePage(answer.url);
}

struct Rule {
    FindingId id = FindingId::FileMissing;
    bool (*isBroken)(const ProbeAnswer&, Served) = nullptr;
    QString (*text)(const ProbeAnswer&) = nullptr;
    /// The file has arrived all the same.
    bool isUsable = false;
};

/// An answer is what the first row that applies to it says.
constexpr std::array rules{
    Rule{ FindingId::RedirectInsecure,
          [](const ProbeAnswer& answer, Served) { return answer.redirectsElsewhere; },
          [](const ProbeAnswer&) {
              return u"The server redirects to an address that is not https, where launchers do "
                     "not follow."_s;
          } },
    Rule{ FindingId::FileMissing,
          [](const ProbeAnswer& answer, Served) {
              return answer.status == HttpStatus::notFound || answer.status == HttpStatus::gone;
          },
          [](const ProbeAnswer&) {
              return u"The server says that there is no such file."_s;
          } },
    Rule{
        FindingId::EarlierDateNotAnswered,
        [](const ProbeAnswer& answer, Served) { return answer.status == HttpStatus::notModified; },
        [](const ProbeAnswer&) {
            return u"The server answers 304 to a date long before the file's: players never get "
                   "it."_s;
        } },
    Rule{ FindingId::FileUnreachable,
          [](const ProbeAnswer& answer, Served) { return !answer.error.isEmpty(); },
          [](const ProbeAnswer& answer) -> QString {
              return "The file does not arrive: "_L1 + answer.error + '.'_L1;
          } },
    Rule{ FindingId::FileUnreachable,
          [](const ProbeAnswer& answer, Served) { return answer.status != HttpStatus::ok; },
          [](const ProbeAnswer& answer) -> QString {
              return "The server answers with status "_L1 + QString::number(answer.status) + '.'_L1;
          } },
    Rule{ FindingId::FileUnreachable,
          [](const ProbeAnswer& answer, Served) {
              return answer.toTheEnd && answer.received < answer.length;
          },
          [](const ProbeAnswer& answer) -> QString {
              return "Only "_L1 + QString::number(answer.received) + " of "_L1
                  + QString::number(answer.length) + " bytes arrive."_L1;
          } },
    Rule{
        FindingId::ErrorPage, isForeignPage,
        [](const ProbeAnswer&) {
            return u"The server sends a web page in place of the file, with status 200: launchers "
                   "store it as if it were the file."_s;
        } },
    Rule{ FindingId::ContentEncoded,
          [](const ProbeAnswer& answer, Served) {
              return !answer.encoding.isEmpty() && answer.encoding != "identity";
          },
          [](const ProbeAnswer& answer) -> QString {
              return "The server sends the file packed as "_L1
                  + QString::fromLatin1(answer.encoding)
                  + ": a cache on the way may hand out the packed bytes as the file."_L1;
          } },
    Rule{
        FindingId::LengthMissing,
        [](const ProbeAnswer& answer, Served) { return answer.length < 0; },
        [](const ProbeAnswer&) {
            return u"The answer has no Content-Length: launchers show no progress and cannot tell "
                   "a file that was cut short."_s;
        },
        true },
    Rule{ FindingId::FileEmpty,
          [](const ProbeAnswer& answer, Served) { return answer.length == 0; },
          [](const ProbeAnswer&) {
              return u"The file is empty, and launchers store no empty answer."_s;
          } },
};

/// What is missing decides how bad that is.
FindingId idFor(FindingId id, Served what)
{
    if (id != FindingId::FileMissing)
        return id;
    switch (what) {
    case Served::Manifest:
        return FindingId::ManifestMissing;
    case Served::LauncherFile:
        return FindingId::LauncherFileMissing;
    case Served::InfoText:
        return FindingId::InfoMissing;
    case Served::PatchFile:
        break;
    }
    return FindingId::FileMissing;
}

} // namespace

namespace AnswerRules {

Verdict judge(const AskedFile& file, const ProbeAnswer& answer)
{
    for (const Rule& rule : rules) {
        if (rule.isBroken(answer, file.what))
            return { Finding{ idFor(rule.id, file.what), file.subject, file.entry,
                              rule.text(answer) },
                     rule.isUsable };
    }
    return {};
}

std::optional<Finding> missingFile(const QString& name, const ProbeAnswer& answer)
{
    if (answer.status != HttpStatus::ok)
        return std::nullopt;
    return Finding{ FindingId::MissingFileAnswered, name, 0,
                    u"The server answers 200 for a file that does not exist: launchers store that "
                    "answer in place of a file."_s };
}

std::optional<Finding> program(const QString& name, const ProbeAnswer& answer)
{
    const QString fault = faultOfProgram(answer.body, std::max(answer.length, answer.received));
    if (fault.isEmpty())
        return std::nullopt;
    return Finding{
        FindingId::NotAProgram, name, 0,
        u"What the server sends is no launcher: it %1. Players' updaters throw it away."_s.arg(
            fault)
    };
}

std::optional<Finding> hash(const PatchFile& file, const QUrl& address, const ProbeAnswer& answer)
{
    const QString& stated = file.entry.hash;
    const QString actual = QString::fromLatin1(answer.md5);
    if (actual == stated.toLower())
        return std::nullopt;
    return Finding{
        FindingId::HashMismatch, file.manifest(), file.number,
        u"%1 arrives with the hash %2, not \"%3\": players download it at every start."_s.arg(
            address.toString(), actual, stated)
    };
}

} // namespace AnswerRules

} // namespace Publisher
