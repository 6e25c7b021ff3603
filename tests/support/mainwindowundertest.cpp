#include "tests/support/mainwindowundertest.h"

#include "app/constants.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/certificateauthority.h"
#include "tests/support/modalanswers.h"
#include "tests/support/patience.h"
#include "tests/support/promptwait.h"
#include "tests/support/runlog.h"
#include "tests/support/widgets.h"

#include <QComboBox>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>
#include <QTextBrowser>

#include <cstdio>

using TestSupport::child;

MainWindowUnderTest::MainWindowUnderTest()
    : window(std::make_unique<MainWindow>())
{
}

MainWindowUnderTest::MainWindowUnderTest(
    const std::function<void(const MainWindowUnderTest&, QDialog*)>& answer)
{
    const TestSupport::ModalAnswers answers({ [&](QDialog* dialog) {
        answer(*this, dialog);
    } });
    window = std::make_unique<MainWindow>();
    if (!answers.allGiven())
        QTest::qFail("The first start asked for no client", __FILE__, __LINE__);
}

MainWindowUnderTest::~MainWindowUnderTest()
{
    if (!settle())
        QTest::qFail("Update runs are still on their way", __FILE__, __LINE__);
}

MainWindow* MainWindowUnderTest::operator->() const
{
    return window.get();
}

MainWindow* MainWindowUnderTest::get() const
{
    return window.get();
}

void MainWindowUnderTest::show() const
{
    window->show();
    if (!QTest::qWaitForWindowExposed(window.get()))
        qFatal("the main window does not show");
}

QPushButton* MainWindowUnderTest::button(const QString& name) const
{
    return child<QPushButton>(get(), "pushButton_" + name);
}

QComboBox* MainWindowUnderTest::selector() const
{
    return child<QComboBox>(get(), "comboBox_RealmSelector");
}

QTextBrowser* MainWindowUnderTest::infoBrowser() const
{
    return child<QTextBrowser>(get(), "textBrowser_launcherInfo");
}

QLabel* MainWindowUnderTest::downloadLabel() const
{
    return child<QLabel>(get(), "label_Download");
}

QProgressBar* MainWindowUnderTest::progressBar() const
{
    return child<QProgressBar>(get(), "progressBar_Downloads");
}

qsizetype MainWindowUnderTest::startedInfoDownloads() const
{
    return log.lines().count(infoLine());
}

qsizetype MainWindowUnderTest::startedRuns() const
{
    return log.lines().count(runLine());
}

qsizetype MainWindowUnderTest::endedRuns() const
{
    return TestSupport::RunLog::installingRuns(log.lines());
}

bool MainWindowUnderTest::settle() const
{
    // Every information text that has ended has started two runs at least.
    return waitFor([this] {
        return startedRuns() >= 2 * startedInfoDownloads() && startedRuns() == endedRuns();
    });
}

bool MainWindowUnderTest::settle(qsizetype runs) const
{
    return waitFor([this, runs] { return startedRuns() == runs && endedRuns() == runs; });
}

bool MainWindowUnderTest::waitFor(const std::function<bool()>& condition) const
{
    if (TestSupport::promptlyWaitFor(condition, TestSupport::patience))
        return true;
    // Otherwise the capture would swallow what went wrong.
    std::fprintf(stderr, "The log so far:\n%s\n", qPrintable(log.lines().join('\n')));
    return false;
}

void MainWindowTest::initTestCase()
{
    TestSupport::trustedCertificate();
}

void MainWindowTest::init()
{
    TestSupport::ApplicationFolder::clear();
}

QString downloadLine(const QString& url, const QString& target)
{
    return "true QUrl(\"" + url + "\") \"" + TestSupport::ApplicationFolder::path() + "\" \""
        + target + '"';
}

QString runLine()
{
    return downloadLine(downloadBaseUrl + "Halden-Launcher-Updater.exe");
}

QString infoLine()
{
    return downloadLine(launcherInfoUrl, "launcher.info");
}
