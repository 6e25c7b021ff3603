#pragma once

#include "core/signalboolhelperclass.h"
#include "net/filedownloader.h"
#include "tests/net/progressreceiver.h"
#include "tests/net/replywatcher.h"
#include "tests/support/timezone.h"

#include <QDateTime>
#include <QObject>
#include <QPointer>
#include <QStringList>
#include <QUrl>

/// A URL on the community's download host, where the test's server listens.
QUrl onDownloadHost(const QString& path);

/// A header's name in quotes as a failure is logged with it: in the toolkit's
/// spelling, which is the server's or, from Qt 6.7 on, in lower case.
QString loggedHeader(const QByteArray& name);

/// One download with everything it talks to, in a target folder of its own
/// below the application folder.
class DownloadProbe : public QObject {
    Q_OBJECT

public:
    explicit DownloadProbe(QString name = QStringLiteral("file.bin"));

    /// Where the file goes; "<application folder>/target" unless changed.
    QString folder;
    QString fileName;
    QDateTime timestamp = TestSupport::utc(QDate(2024, 2, 29), QTime(23, 58, 59));
    bool useTls = true;

    TestSupport::ProgressReceiver receiver;
    SignalBoolHelperClass flag;
    TestSupport::ReplyWatcher network;
    /// The downloader's object, from the moment it shows itself.
    QPointer<QObject> downloader;

    /// "show", "request" (issued), each of the downloader's signals, "hide" and
    /// "flag". This object hears a signal after the downloader's own slots.
    QStringList events;

    /// Whether the entry point returned true.
    bool start(const QUrl& url);
    bool startPlain(const QUrl& url);
    /// Waits for the end. False when the download is still running by then.
    bool run(const QUrl& url);
    bool runPlain(const QUrl& url);

    QString target() const;
    QString temporary() const;

    /// How it ended: which of the two signals came, how often the flag was set
    /// and the display hidden, and what is left in the folder, as in
    /// "notModiefied, flag 1, hidden 1, target 'old', temporary none".
    QString outcome() const;

private:
    void observe(QObject* shown);
    void note(const QString& event);
};

/// The outcomes a download may have, given what the target then holds.
QString endedWritten(const QByteArray& content);
QString endedNotModified(const QByteArray& content);
