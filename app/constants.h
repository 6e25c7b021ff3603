#pragma once

#include "app/buildconfig.h"

#include <QString>

// What every layer reads and nothing changes at run time. The hosts are chosen
// when the launcher is configured.

/// The community's information text; nothing reads this name.
inline const QString alertUrl = QStringLiteral("https://" HALDEN_WEB_HOST "/alert");
/// The community's information text, shown in the main window.
inline const QString launcherInfoUrl = QStringLiteral("https://" HALDEN_WEB_HOST "/alert");

/// Bare domain name; also the realm host offered for a new entry.
inline const QString organizationDomain = QStringLiteral(HALDEN_WEB_DOMAIN);
/// Also the realm name offered for a new entry.
inline const QString organizationName = QStringLiteral("Tarnwick");
/// Sent as the User-Agent of every download.
inline const QString applicationDisplayName = QStringLiteral("Tarnwick Launcher");

/// Where the TLS libraries are fetched from, without TLS settings of our own.
inline const QString unencryptedDownloadBaseUrl = QStringLiteral("https://" HALDEN_MIRROR_HOST "/");

// Three names for one value, so that launcher files, live patches and test
// patches can be moved to different hosts one at a time.
/// Base of the launcher's own files and of the two manifests.
inline const QString downloadBaseUrl = QStringLiteral("https://" HALDEN_DOWNLOAD_HOST "/");
/// Base of the patch files that "patch.ini" lists.
inline const QString livePatchBaseUrl = QStringLiteral("https://" HALDEN_DOWNLOAD_HOST "/");
/// Base of the patch files that "patchTest.ini" lists.
inline const QString testPatchBaseUrl = QStringLiteral("https://" HALDEN_DOWNLOAD_HOST "/");

/// Shown in the main window.
inline const QString launcherVersion = QStringLiteral(HALDEN_VERSION);
