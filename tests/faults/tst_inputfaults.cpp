#include "tests/faults/celltable.h"
#include "tests/faults/faultrows.h"
#include "tests/faults/faultyevening.h"
#include "tests/support/applicationfolder.h"
#include "tests/support/realmsini.h"
#include "tests/support/testmain.h"

#include <QFileInfo>

using namespace TestSupport;

namespace {

constexpr int longLine = 100'000'000;
constexpr int manyKeys = 200'000;

const QByteArray rubbish = QByteArray::fromHex("00ff1b5d0a5b3d00c3280d0a22feff80").repeated(500);
const QByteArray page = "<!DOCTYPE html>\n<html><head><title>Wartung</title></head>\n"
                        "<body><h1>503</h1>[realms]\nsize=9\n</body></html>\n";
const QByteArray byteOrderMark = "\xef\xbb\xbf";

QByteArray keys()
{
    QByteArray lines;
    for (int i = 0; i < manyKeys; ++i)
        lines += "key" + QByteArray::number(i) + "=value\n";
    return lines;
}

QByteArray realmList(const QByteArray& name = "Halden")
{
    return realmsIniWith({ { .name = name, .path = ownClientFolder().toUtf8() } }, "realmid=1\n");
}

} // namespace

/// What is read is not what it should be: the realm list, the manifest and the
/// information text.
class tst_InputFaults : public QObject {
    Q_OBJECT

private slots:
    void realmsIni_data();
    void realmsIni();
    void emptyCopy_data();
    void emptyCopy();
    void fetched_data();
    void fetched();
    void cleanupTestCase();

private:
    static QMap<Target, QString> startWith(const QByteArray& realms, bool hasClient);

    /// What has become of the targets, by the realm list's fault.
    QMap<QString, QMap<Target, QString>> starts;
    CellTable cells;
};

void tst_InputFaults::realmsIni_data()
{
    QTest::addColumn<QString>("fault");
    QTest::addColumn<Target>("target");
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("hasClient");
    const auto rows = [](const QString& form, const QByteArray& content, bool hasClient) {
        const QString fault = "realms.ini " + form;
        for (const Target target : Targets::all())
            QTest::newRow(rowName(fault, target).constData())
                << fault << target << content << hasClient;
    };
    rows("is rubbish", rubbish, false);
    rows("is empty", "", false);
    rows("is an HTML page", page, false);
    rows("has a line of 100 MB", realmList() + "note=" + QByteArray(longLine, 'x') + '\n', true);
    rows("has 200,000 keys", realmList() + keys(), true);
    rows("has a byte-order mark", byteOrderMark + realmList(), true);
    rows("is in Latin-1", realmList("K\xf6nigreich"), true);
}

/// One start with this realm list, in which all five targets are new: some of
/// the lists take their time. Says what has become of each.
QMap<Target, QString> tst_InputFaults::startWith(const QByteArray& realms, bool hasClient)
{
    FaultyEvening evening(Target::Launcher);
    writeRealmsIni(realms);
    if (!hasClient)
        evening.clientMayDiffer();
    const QString launcher = evening.play();
    QMap<Target, QString> states;
    for (const Target target : Targets::all())
        states.insert(target, Targets::stateOfFile(target, ApplicationFolder::path()));
    states.insert(Target::Launcher, launcher);
    if (readFile(realmsIniPath()) != realms)
        states.clear();
    return states;
}

void tst_InputFaults::realmsIni()
{
    QFETCH(QString, fault);
    QFETCH(Target, target);
    QFETCH(QByteArray, content);
    QFETCH(bool, hasClient);
    if (!starts.contains(fault))
        starts.insert(fault, startWith(content, hasClient));
    QVERIFY2(!starts.value(fault).isEmpty(), "the realm list was changed");
    QCOMPARE(starts.value(fault).value(target), whole);
    cells.add(fault, target, whole);
}

void tst_InputFaults::emptyCopy_data()
{
    QTest::addColumn<Target>("target");
    for (const Target target : { Target::InfoText, Target::Manifest })
        QTest::newRow(qPrintable(Targets::name(target))) << target;
}

/// An empty answer replaces nothing, so only the player's own copy can be empty.
void tst_InputFaults::emptyCopy()
{
    QFETCH(Target, target);
    FaultyEvening evening(target);
    placeOldFile(Targets::localPath(target), QByteArray());
    evening.answerTarget(HttpAnswer::notModified());
    evening.keptMeans([target] {
        const QFileInfo copy(Targets::localPath(target));
        return copy.isFile() && copy.size() == 0;
    });
    QCOMPARE(evening.play(), keptThenWhole);
    cells.add("content is empty", target, keptThenWhole);
}

void tst_InputFaults::fetched_data()
{
    QTest::addColumn<QString>("fault");
    QTest::addColumn<Target>("target");
    QTest::addColumn<QByteArray>("content");
    const auto row = [](const QString& form, Target target, const QByteArray& content) {
        const QString fault = "content " + form;
        QTest::newRow(rowName(fault, target).constData()) << fault << target << content;
    };
    for (const Target target : { Target::InfoText, Target::Manifest }) {
        const QByteArray sound = Targets::today(target);
        row("is rubbish", target, rubbish);
        row("is an HTML page", target, page);
        row("has a byte-order mark", target, byteOrderMark + sound);
        row("is in Latin-1", target, sound + "<b>K\xf6nigreich</b>\n");
    }
    row("has a line of 100 MB", Target::Manifest,
        "numberOfFiles=2\nnote=" + QByteArray(longLine, 'x') + '\n');
    row("has 200,000 keys", Target::Manifest, "numberOfFiles=2\n" + keys());
    row("has a line of 1 MB", Target::InfoText, QByteArray(longLine / 100, 'x'));
    row("has 20,000 elements", Target::InfoText, QByteArray("<b>x</b>").repeated(manyKeys / 10));
}

void tst_InputFaults::fetched()
{
    QFETCH(QString, fault);
    QFETCH(Target, target);
    QFETCH(QByteArray, content);
    FaultyEvening evening(target);
    evening.answerTarget(HttpAnswer::ok(content));
    if (target == Target::Manifest)
        evening.clientMayDiffer();
    QCOMPARE(evening.play(), wrongContent(target));
    cells.add(fault, target, wrongContent(target));
}

/// Last, so that the rows of the page keep the order in which they were proved.
void tst_InputFaults::cleanupTestCase()
{
    for (const Target target : { Target::PatchFile, Target::Launcher, Target::Updater })
        cells.leaveOut("content is rubbish", target, "the launcher does not read its content");
}

HALDEN_TEST_MAIN(tst_InputFaults)
#include "tst_inputfaults.moc"
