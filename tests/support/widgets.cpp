#include "tests/support/widgets.h"

#include "tests/support/applicationfolder.h"

#include <QAbstractItemView>
#include <QComboBox>
#include <QDir>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QTest>

namespace TestSupport {

namespace {

/// The toolkit's own keyClicks() knows no letters outside ASCII.
void typeLetter(QWidget* widget, QChar letter)
{
    if (letter.unicode() < 128)
        QTest::keyClick(widget, letter.toLatin1());
    else
        QTest::sendKeyEvent(QTest::Click, widget, Qt::Key_unknown, letter, Qt::NoModifier);
}

} // namespace

void failOnWarnings()
{
    QTest::failOnWarning(QRegularExpression("^(?!This plugin does not support )"));
}

void click(const QObject* parent, const QString& name)
{
    QTest::mouseClick(child<QWidget>(parent, name), Qt::LeftButton);
}

void click(const QObject* dialog, QDialogButtonBox::StandardButton button)
{
    QTest::mouseClick(child<QDialogButtonBox>(dialog, "buttonBox")->button(button), Qt::LeftButton);
}

void type(QLineEdit* edit, const QString& text)
{
    QTest::mouseClick(edit, Qt::LeftButton);
    edit->selectAll();
    QTest::keyClick(edit, Qt::Key_Delete);
    for (const QChar letter : text)
        typeLetter(edit, letter);
}

void pick(QComboBox* list, int row)
{
    QTest::mouseClick(list, Qt::LeftButton);
    QTest::keyClick(list->view(), Qt::Key_Home);
    for (int i = 0; i < row; ++i)
        QTest::keyClick(list->view(), Qt::Key_Down);
    QTest::keyClick(list->view(), Qt::Key_Return);
}

QString makeClientFolder(const QString& path)
{
    writeFile(path + "/wow.exe", "MZ");
    QDir().mkpath(path + "/Data");
    return path;
}

} // namespace TestSupport
