#include "Attributes.h"
#include "FakeBluez.h"

#include <QDBusConnectionInterface>
#include <QSignalSpy>

using plim::Bonds;
using plim::Central;

/** Bonds at the start, and in slots that end something or run an event loop. The test is BlueZ. */
class tst_bonds_turns : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void oneIsForgottenRightAtTheStart();
    void aResetBeforeAllBondsAreReadSaysSo();
    void theErrorOutlivesTheObject();
    void theEndOfAResetIsToldOnce();
    void theEndOfBluezInASlotEndsNoBond();

private:
    static DBusInterfaceList bonded() { return {{"org.bluez.Device1"_qs, {{"Bonded"_qs, true}}}}; }
    void answerAll(const QString& error = QString())
    {
        for (const QDBusMessage& call : qAsConst(m_bluez->calls)) {
            m_bluez->send(error.isEmpty() ? call.createReply() : call.createErrorReply(error, "No"_qs));
        }
    }

    std::unique_ptr<FakeBluez> m_bluez;
    std::unique_ptr<Bonds> m_bonds;
};

void tst_bonds_turns::init()
{
    m_bluez = std::make_unique<FakeBluez>("bluez"_qs);
    m_bluez->objects = {{QDBusObjectPath("/org/bluez/hci0"_qs), {{"org.bluez.Adapter1"_qs, {}}}},
                        {QDBusObjectPath(phonePath), bonded()},
                        {QDBusObjectPath(tabletPath), bonded()}};
    QVERIFY(m_bluez->appear());
    m_bonds = std::make_unique<Bonds>();
}

void tst_bonds_turns::cleanup()
{
    m_bonds.reset();
    m_bluez.reset();
    QTRY_VERIFY(!QDBusConnection::systemBus().interface()->isServiceRegistered("org.bluez"_qs).value());
}

void tst_bonds_turns::oneIsForgottenRightAtTheStart()
{
    QSignalSpy forgotten(m_bonds.get(), &Bonds::forgotten);
    m_bonds->forget(Central(phonePath));
    QTRY_VERIFY(m_bluez->calls.size() + forgotten.size() == 1);
    answerAll();
    QTRY_COMPARE(forgotten.size(), 1);
    QCOMPARE(forgotten.first().at(1).toString(), QString());
}

void tst_bonds_turns::aResetBeforeAllBondsAreReadSaysSo()
{
    QSignalSpy all(m_bonds.get(), &Bonds::allForgotten);
    connect(m_bonds.get(), &Bonds::added, this, [this] { m_bonds->forgetAll(); });
    QTRY_VERIFY(m_bonds->isKnown());
    QCOMPARE(m_bonds->bonds().size(), 2);
    QTRY_COMPARE(m_bluez->calls.size(), 1);
    answerAll();
    QTRY_COMPARE(all.size(), 1);
    QCOMPARE(all.first().first().toString(), "BlueZ has not told its bonds"_qs);
}

void tst_bonds_turns::theErrorOutlivesTheObject()
{
    QString told;
    QTRY_VERIFY(m_bonds->isKnown());
    connect(m_bonds.get(), &Bonds::allForgotten, this, [&](const QString& error) {
        m_bonds.reset();
        told = error;
    });
    m_bonds->forgetAll();
    QTRY_COMPARE(m_bluez->calls.size(), 2);
    answerAll("org.bluez.Error.Failed"_qs);
    QTRY_VERIFY(!m_bonds);
    QCOMPARE(told, "org.bluez.Error.Failed: No"_qs);
}

void tst_bonds_turns::theEndOfAResetIsToldOnce()
{
    QTRY_VERIFY(m_bonds->isKnown());
    QSignalSpy all(m_bonds.get(), &Bonds::allForgotten);
    int forgotten = 0;
    bool hasReturned = false;
    connect(m_bonds.get(), &Bonds::forgotten, this, [&] {
        if (++forgotten == 1) {
            QTRY_COMPARE(forgotten, 2);
            hasReturned = true;
        }
    });
    m_bonds->forgetAll();
    QTRY_COMPARE(m_bluez->calls.size(), 2);
    answerAll();
    QTRY_VERIFY(hasReturned);
    QCOMPARE(all.size(), 1);
}

/** While BlueZ does not run, the bonds that were known are shown. */
void tst_bonds_turns::theEndOfBluezInASlotEndsNoBond()
{
    QTRY_COMPARE(m_bonds->bonds().size(), 2);
    const plim::Adapter adapter;
    QTRY_VERIFY(adapter.isPresent());
    m_bluez->vanish();
    QTRY_VERIFY(!adapter.isPresent());
    QStringList removed;
    bool hasEnded = false;
    connect(m_bonds.get(), &Bonds::removed, this, [&](const Central& central) {
        removed << central.path();
        m_bluez->vanish();
        hasEnded = QTest::qWaitFor([&] { return !adapter.isPresent(); });
    });
    m_bluez->objects.remove(QDBusObjectPath(phonePath));
    m_bluez->objects.remove(QDBusObjectPath(tabletPath));
    QVERIFY(m_bluez->appear());
    QTRY_VERIFY(hasEnded);
    QCOMPARE(removed, QStringList{phonePath});
    QVERIFY(m_bonds->contains(Central(tabletPath)));
}

QTEST_GUILESS_MAIN(tst_bonds_turns)
#include "tst_bonds_turns.moc"
