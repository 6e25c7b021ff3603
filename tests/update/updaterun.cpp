#include "tests/update/updaterun.h"

#include "tests/support/applicationfolder.h"
#include "tests/support/patience.h"
#include "tests/support/realmsini.h"
#include "ui/mainwindow.h"

#include <QCoreApplication>
#include <QLabel>
#include <QTest>
#include <QTimer>

#include <cstdio>

using namespace TestSupport;

namespace UpdateFixture {

SeveredWindow::SeveredWindow()
{
    ApplicationFolder::clear();
    writeRealmsIni(realmsIniWith({}, QByteArray()));
    trustedCertificate();
    const LogCapture log;
    window = std::make_unique<MainWindow>();
    QObject::disconnect(window.get(), SIGNAL(update()), nullptr, nullptr);
    const auto* label = window->findChild<QLabel*>("label_Download");
    if (!QTest::qWaitFor([label] { return label->isHidden(); }, patience))
        qFatal("the information text's download does not end");
}

SeveredWindow::~SeveredWindow() = default;

MainWindow* SeveredWindow::get() const
{
    return window.get();
}

void SeveredWindowTest::initTestCase()
{
    window = std::make_unique<SeveredWindow>();
}

void SeveredWindowTest::init()
{
    ApplicationFolder::clear();
}

void SeveredWindowTest::cleanupTestCase()
{
    window.reset();
}

UpdateRun::UpdateRun(const SeveredWindow& window)
    : procedures(new UpdatingProcedures(window.get()))
{
    server.listen();
    QObject::connect(&server, &HttpsServer::requested, &context, [this](const QByteArray& path) {
        events.append(path);
    });
    const auto record = [this](const QString& name) {
        return [this, name] {
            events.append(name);
        };
    };
    QObject::connect(
        get(), &UpdatingProcedures::launcherUpdateComplete, &context,
        record("launcherUpdateComplete"));
    QObject::connect(
        get(), &UpdatingProcedures::clientDownloadComplete, &context,
        record("clientDownloadComplete"));
    QObject::connect(
        get(), &UpdatingProcedures::clientUpdateComplete, &context, record("clientUpdateComplete"));
}

UpdateRun::~UpdateRun()
{
    // What is left of a failed test must not run into the next one.
    server.shutDown();
    if (procedures && !waitForEnd())
        delete procedures.get();
    // Otherwise the capture would swallow what went wrong.
    if (QTest::currentTestFailed())
        std::fprintf(stderr, "The log:\n%s\n", qPrintable(log.lines().join('\n')));
}

UpdatingProcedures* UpdateRun::operator->() const
{
    return procedures;
}

UpdatingProcedures* UpdateRun::get() const
{
    return procedures;
}

Ending UpdateRun::playFromTheStart()
{
    QTimer watchdog;
    watchdog.setSingleShot(true);
    QObject::connect(&watchdog, &QTimer::timeout, &context, [] {
        QCoreApplication::exit(static_cast<int>(Ending::NotAtAll));
    });
    const auto deleted = QObject::connect(get(), &QObject::destroyed, &context, [] {
        QCoreApplication::exit(static_cast<int>(Ending::Deleted));
    });
    watchdog.start(patience);
    QMetaObject::invokeMethod(
        get(), [this] { procedures->downloadUpdater(); }, Qt::QueuedConnection);
    const auto ending = static_cast<Ending>(QCoreApplication::exec());
    QObject::disconnect(deleted);
    return ending == Ending::NotAtAll || !waitForEnd() ? Ending::NotAtAll : ending;
}

bool UpdateRun::waitForEnd()
{
    return QTest::qWaitFor([this] { return procedures.isNull(); }, patience);
}

qsizetype UpdateRun::launcherCompletions() const
{
    return events.count("launcherUpdateComplete");
}

qsizetype UpdateRun::downloadCompletions() const
{
    return events.count("clientDownloadComplete");
}

qsizetype UpdateRun::clientCompletions() const
{
    return events.count("clientUpdateComplete");
}

QString downloadLine(const QString& serverPath, const QString& folder, const QString& fileName)
{
    return QString("true QUrl(\"https://download.tarnwick.example/%1\") \"%2\" \"%3\"")
        .arg(serverPath, folder, fileName);
}

} // namespace UpdateFixture
