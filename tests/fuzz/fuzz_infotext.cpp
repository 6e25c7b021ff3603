// Information texts against the main window, which shows them.

#include "tests/fuzz/target.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/realmsini.h"
#include "tests/support/testmain.h"
#include "tests/support/widgets.h"
#include "ui/mainwindow.h"

#include <QApplication>
#include <QMetaObject>
#include <QRegularExpression>
#include <QTextBlock>
#include <QTextBrowser>
#include <QTextDocument>
#include <QTextList>
#include <QTextTable>

#include <algorithm>
#include <array>

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

/// Debian's toolkit is not built to be watched. What it has made of a text is told to
/// libFuzzer instead: an input that brings about another kind of format is a new one.
class Traces {
public:
    static void note(const QTextDocument& document)
    {
        seen.fill(0);
        for (QTextBlock block = document.begin(); block.isValid(); block = block.next()) {
            note(1, block.blockFormat());
            if (const QTextList* list = block.textList())
                note(2, list->format());
            for (auto fragment = block.begin(); !fragment.atEnd(); ++fragment)
                note(3, fragment.fragment().charFormat());
        }
        noteFrames(document.rootFrame(), 0);
    }

private:
    static void noteFrames(const QTextFrame* frame, int depth)
    {
        note(4 + depth, frame->frameFormat());
        const QList<QTextFrame*> children = frame->childFrames();
        for (const QTextFrame* child : children)
            noteFrames(child, depth + 1);
    }

    static void note(int kind, const QTextFormat& format)
    {
        const QMap<int, QVariant> properties = format.properties();
        for (auto property = properties.begin(); property != properties.end(); ++property)
            note(kind, property.key(), property.value());
    }

    static void note(int kind, int property, const QVariant& value)
    {
        const std::size_t trace = qHashMulti(0, kind, property, value.typeId(), value.toBool());
        std::uint8_t& times = seen.at(trace % seen.size());
        if (times < UINT8_MAX)
            ++times;
    }

    using Counters = std::array<std::uint8_t, 4096>;
    // libFuzzer looks here for more than its own counters.
    [[gnu::section("__libfuzzer_extra_counters")]] static Counters seen;
};

Traces::Counters Traces::seen{};

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

    const QTextDocument& document() const
    {
        return *browser->document();
    }

private:
    MainWindow window;
    QTextBrowser* browser
        = TestSupport::child<QTextBrowser>(&window, u"textBrowser_launcherInfo"_s);
};

Window& window()
{
    static auto* const only = new Window;
    return *only;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    // Neither it nor the window is given up: behind main() the threads' own data is
    // gone, which fonts reach for then.
    static const auto* const application = new QApplication(*argc, *argv);
    Q_UNUSED(application);
    TestSupport::requireSandbox();
    Fuzz::silenceToolkit();
    TestSupport::writeRealmsIni(TestSupport::realmsIniWith({}, QByteArray()));
    window();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    window().show(withoutHugeNumbers(shortened(Fuzz::toBytes(data, size))));
    Traces::note(window().document());
    // Whatever it was, the next text is shown as ever.
    window().show("<b>Wartung</b> um 20 Uhr");
    const QString text = window().document().toPlainText();
    if (text != u"Wartung um 20 Uhr")
        qFatal("a sound text is shown as %s", qPrintable(text));
    return 0;
}
