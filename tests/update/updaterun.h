#pragma once

#include "tests/support/httpsserver.h"
#include "tests/support/logcapture.h"
#include "update/updatingprocedures.h"

#include <QObject>
#include <QPointer>
#include <QStringList>

#include <memory>

class MainWindow;

namespace UpdateFixture {

/// The main window as a mere receiver of progress: it is constructed where no
/// server answers, and its own chain of updates is cut. Make it before anything
/// else in a test program; it clears the application folder.
class SeveredWindow {
public:
    SeveredWindow();
    ~SeveredWindow();
    SeveredWindow(const SeveredWindow&) = delete;
    SeveredWindow& operator=(const SeveredWindow&) = delete;

    MainWindow* get() const;

private:
    std::unique_ptr<MainWindow> window;
};

/// Tests of runs that are handed that window; each begins with an empty application
/// folder.
class SeveredWindowTest : public QObject {
    Q_OBJECT

protected slots:
    void initTestCase();
    void init();
    void cleanupTestCase();

protected:
    std::unique_ptr<SeveredWindow> window;
};

/// How a run came to its end.
enum class Ending {
    Quit = 0, ///< The code under test asked the application to quit.
    NotAtAll = 1,
    Deleted = 2, ///< The run deleted itself.
};

/// One update run with the community's server and the log around it. The server
/// answers 404 to whatever a test does not set.
class UpdateRun {
public:
    explicit UpdateRun(const SeveredWindow& window);
    /// Cuts what is left of a run that a failed test leaves behind.
    ~UpdateRun();
    UpdateRun(const UpdateRun&) = delete;
    UpdateRun& operator=(const UpdateRun&) = delete;

    UpdatingProcedures* operator->() const;
    UpdatingProcedures* get() const;

    /// Runs the application's event loop from downloadUpdater() on. After a
    /// request to quit the rest of the run is played to its end as well.
    Ending playFromTheStart();
    /// Waits until the run has deleted itself.
    bool waitForEnd();

    /// Emissions so far.
    qsizetype launcherCompletions() const;
    qsizetype downloadCompletions() const;
    qsizetype clientCompletions() const;

    TestSupport::HttpsServer server;
    TestSupport::LogCapture log;
    /// Signals of the run and requested paths in the order they came.
    QStringList events;

private:
    QPointer<UpdatingProcedures> procedures;
    QObject context;
};

/// The log line with which a download of the launcher's hosts begins.
QString downloadLine(const QString& serverPath, const QString& folder, const QString& fileName);

} // namespace UpdateFixture
