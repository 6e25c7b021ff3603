#pragma once

#include "tests/support/logcapture.h"
#include "ui/mainwindow.h"

#include <QObject>
#include <QString>

#include <functional>
#include <memory>

QT_BEGIN_NAMESPACE
class QComboBox;
class QDialog;
class QLabel;
class QProgressBar;
class QPushButton;
class QTextBrowser;
QT_END_NAMESPACE

/// A main window and the log of everything it starts. Its update runs hold the
/// window, so this object goes away only when the last of them has ended; runs
/// that do not end fail the test. Without a server every download is refused,
/// and a start-up goes through to its end by itself.
class MainWindowUnderTest {
public:
    /// Constructs the window; the event loop does not run unless a dialog opens.
    MainWindowUnderTest();
    /// Answers the dialog of a first start, which must open. While it is open
    /// the window is not complete: only the log and the counts below are there.
    explicit MainWindowUnderTest(
        const std::function<void(const MainWindowUnderTest&, QDialog*)>& answer);
    ~MainWindowUnderTest();
    MainWindowUnderTest(const MainWindowUnderTest&) = delete;
    MainWindowUnderTest& operator=(const MainWindowUnderTest&) = delete;

    MainWindow* operator->() const;
    MainWindow* get() const;
    /// Shows the window and waits until it can be clicked at.
    void show() const;

    QPushButton* button(const QString& name) const;
    QComboBox* selector() const;
    QTextBrowser* infoBrowser() const;
    QLabel* downloadLabel() const;
    QProgressBar* progressBar() const;

    /// Downloads of the information text so far.
    qsizetype startedInfoDownloads() const;
    /// Update runs that have been started, or have installed and so ended.
    qsizetype startedRuns() const;
    qsizetype endedRuns() const;
    /// Waits until every information text has arrived and every run has ended.
    bool settle() const;
    /// Waits until this many runs have been started and all have ended.
    bool settle(qsizetype runs) const;

    TestSupport::LogCapture log;

private:
    bool waitFor(const std::function<bool()>& condition) const;

    std::unique_ptr<MainWindow> window;
};

/// Tests that construct the window. Whoever does so first reads which authorities are
/// trusted, so there is one before; every test begins with an empty application folder.
class MainWindowTest : public QObject {
    Q_OBJECT

protected slots:
    void initTestCase();
    void init();
};

/// The log line with which a download of this file into the application folder
/// begins. An empty `target` keeps the name of the URL.
QString downloadLine(const QString& url, const QString& target = QString());
/// The log line with which an update run begins.
QString runLine();
/// The log line with which the download of the information text begins.
QString infoLine();
