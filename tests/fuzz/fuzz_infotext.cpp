// Feeds broken information texts to the main window, which shows them.

#include "tests/fuzz/brokenhtml.h"
#include "tests/fuzz/fuzzloop.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/realmsini.h"
#include "tests/support/testmain.h"
#include "tests/support/widgets.h"
#include "ui/mainwindow.h"

#include <QApplication>
#include <QMetaObject>
#include <QRegularExpression>
#include <QTextBrowser>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

// The window lays out whatever the community's server sends, and there are texts
// for which the toolkit takes for ever; docs/reliability.md names them. They are
// known, and would keep the fuzzer from anything else.

/// The time doubles with every table inside a table and grows with every element.
QByteArray shortened(const QByteArray& text)
{
    constexpr int mostTables = 10;
    constexpr qsizetype mostBytes = 4096;
    const QByteArray tag = "<table";
    const QByteArray lower = text.toLower();
    qsizetype end = -1;
    for (int tables = 0; tables <= mostTables; ++tables) {
        end = lower.indexOf(tag, end + 1);
        if (end < 0)
            return text.left(mostBytes);
    }
    return text.left(std::min(end, mostBytes));
}

/// A table whose cells have more padding than a coordinate can hold is laid out
/// without an end.
QByteArray withoutHugeNumbers(const QByteArray& text)
{
    static const QRegularExpression power(u"[0-9.]+[eE][+]?[0-9]+"_s);
    static const QRegularExpression surplusDigits(u"(?<!&#)(?<![0-9])([0-9]{5})[0-9]+"_s);
    // Byte by byte: the text need not be any encoding's.
    QString bytes = QString::fromLatin1(text);
    return bytes.replace(power, u"1e5"_s).replace(surplusDigits, u"\\1"_s).toLatin1();
}

class Window {
public:
    Window()
    {
        // The text alone, without the update runs that follow it.
        QObject::disconnect(&window, SIGNAL(update()), nullptr, nullptr);
    }

    void show(const QByteArray& text)
    {
        TestSupport::writeFile(TestSupport::ApplicationFolder::path(u"launcher.info"_s), text);
        QMetaObject::invokeMethod(&window, "showInfoText");
        // Lays the text out and paints it.
        browser->grab();
    }

    QString text() const
    {
        return browser->toPlainText();
    }

private:
    MainWindow window;
    QTextBrowser* browser
        = TestSupport::child<QTextBrowser>(&window, u"textBrowser_launcherInfo"_s);
};

} // namespace

int main(int argc, char* argv[])
{
    const QApplication application(argc, argv);
    TestSupport::requireSandbox();
    TestSupport::writeRealmsIni(TestSupport::realmsIniWith({}, QByteArray()));
    Window window;
    return runFuzzer({ u"infotext"_s, brokenHtml, [&window](const QByteArray& input, quint32) {
                          window.show(withoutHugeNumbers(shortened(input)));
                          // Whatever it was, the next text is shown as ever.
                          window.show("<b>Wartung</b> um 20 Uhr");
                          if (window.text() != u"Wartung um 20 Uhr")
                              qFatal("a sound text is shown as %s", qPrintable(window.text()));
                      } });
}
