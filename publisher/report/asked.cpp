#include "publisher/report/asked.h"

#include "app/constants.h"
#include "update/launcherfiles.h"

#include <QUrl>

#include <string>

namespace Publisher {

namespace {

std::string targetOf(QLatin1StringView name)
{
    return '/' + std::string(name.data(), static_cast<std::size_t>(name.size()));
}

struct Targets {
    std::string info = QUrl(launcherInfoUrl).path(QUrl::FullyEncoded).toStdString();
    std::string updater = targetOf(updaterFileName);
    std::string launcher = targetOf(launcherFileName);
    std::string live = targetOf(liveManifestFileName);
    std::string test = targetOf(testManifestFileName);
    std::string patchFolder = targetOf(patchFolderName) + '/';
};

} // namespace

Asked askedBy(std::string_view target)
{
    static const Targets targets;
    if (target.starts_with(targets.patchFolder))
        return Asked::PatchFile;
    if (target == targets.live)
        return Asked::LiveManifest;
    if (target == targets.launcher)
        return Asked::Launcher;
    if (target == targets.updater)
        return Asked::Updater;
    if (target == targets.info)
        return Asked::Info;
    return target == targets.test ? Asked::TestManifest : Asked::Other;
}

bool isLauncher(std::string_view userAgent)
{
    static const std::string name = applicationDisplayName.toStdString();
    return userAgent == name;
}

} // namespace Publisher
