#include "core/signalboolhelperclass.h"
#include "tests/support/testmain.h"

#include <QSignalSpy>
#include <QStringList>

/// Records the order of a flag's signals and the state seen inside them.
class FlagObserver : public QObject {
    Q_OBJECT

public:
    explicit FlagObserver(SignalBoolHelperClass* observed)
        : flag(observed)
    {
        connect(flag, SIGNAL(changedToTrue()), this, SLOT(sawTrue()));
        connect(flag, SIGNAL(changedToFalse()), this, SLOT(sawFalse()));
        connect(flag, SIGNAL(changedState()), this, SLOT(sawChange()));
    }

    QStringList events;

private slots:
    void sawChange()
    {
        record("changedState");
    }
    void sawTrue()
    {
        record("changedToTrue");
    }
    void sawFalse()
    {
        record("changedToFalse");
    }

private:
    void record(const char* name)
    {
        events.append(QString(name) + (flag->state() ? " true" : " false"));
    }

    SignalBoolHelperClass* flag;
};

class tst_SignalBoolHelperClass : public QObject {
    Q_OBJECT

private slots:
    void startsFalseWithoutParent()
    {
        const SignalBoolHelperClass flag;
        QVERIFY(!flag.state());
        QCOMPARE(flag.parent(), nullptr);
    }

    void announcesEveryWrite_data()
    {
        QTest::addColumn<QList<bool>>("writes");
        QTest::addColumn<QStringList>("events");
        const QStringList toTrue{ "changedState true", "changedToTrue true" };
        const QStringList toFalse{ "changedState false", "changedToFalse false" };
        QTest::newRow("false on a fresh flag") << QList<bool>{ false } << toFalse;
        QTest::newRow("true") << QList<bool>{ true } << toTrue;
        QTest::newRow("true twice") << QList<bool>{ true, true } << toTrue + toTrue;
        QTest::newRow("false twice") << QList<bool>{ false, false } << toFalse + toFalse;
        QTest::newRow("there and back") << QList<bool>{ true, false } << toTrue + toFalse;
    }

    void announcesEveryWrite()
    {
        QFETCH(QList<bool>, writes);
        QFETCH(QStringList, events);
        SignalBoolHelperClass flag;
        FlagObserver observer(&flag);
        for (const bool value : writes)
            value ? flag.setTrue() : flag.setFalse();
        QCOMPARE(observer.events, events);
        QCOMPARE(flag.state(), writes.constLast());
    }
};

HALDEN_TEST_MAIN(tst_SignalBoolHelperClass)
#include "tst_signalboolhelperclass.moc"
