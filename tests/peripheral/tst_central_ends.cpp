#include "ObservedCentrals.h"

#include <QPointer>
#include <QSignalSpy>

using namespace CentralsScenario;
using plim::Central;
using plim::Centrals;

/** Links that the program ends, and objects that end. */
class tst_central_ends : public QObject, private ObservedCentrals
{
    Q_OBJECT

private slots:
    void init() { begin(); }
    void cleanup() { end(); }
    void disconnectingReachesTheDaemon();
    void whoIsNotConnectedIsNotDisconnected();
    void slotsMayDeleteTheObject_data();
    void slotsMayDeleteTheObject();
    void slotsMayDeleteTheAttributeThatIsAsked_data();
    void slotsMayDeleteTheAttributeThatIsAsked();
    void theEndOfALinkIsNoConfirmation();
    void theObjectMayEndWithADisconnectionUnderWay();
};

void tst_central_ends::disconnectingReachesTheDaemon()
{
    start();
    m_bluez->add(phonePath, phone());
    QCOMPARE(told().size(), 1);
    QStringList ends;
    const auto note = [&ends](const QDBusError& error) {
        ends << (error.isValid() ? error.name() : "done"_qs);
    };
    m_centrals->disconnect(Central(phonePath), note);
    m_centrals->disconnect(Central(phonePath), note);
    m_centrals->disconnect(Central(phonePath), [](const QDBusError&) { throw 1; });
    EVENTUALLY_COMPARE(m_bluez->calls.size(), 3);
    const QDBusMessage& call = m_bluez->calls.constFirst();
    QCOMPARE(call.path() + ' ' + call.interface() + '.' + call.member() + call.signature(),
             phonePath + " org.bluez.Device1.Disconnect"_qs);
    m_bluez->send(call.createReply());
    m_bluez->send(m_bluez->calls.at(1).createErrorReply("org.bluez.Error.Failed"_qs, "No"_qs));
    m_bluez->send(m_bluez->calls.at(2).createReply());
    EVENTUALLY_COMPARE(ends, QStringList({"done"_qs, "org.bluez.Error.Failed"_qs}));
    QCOMPARE(m_centrals->connected().size(), 1); // until the daemon says otherwise
}

void tst_central_ends::whoIsNotConnectedIsNotDisconnected()
{
    start();
    m_bluez->add(phonePath, phone({{"Connected"_qs, false}}));
    settle();
    QStringList ends;
    for (const QString& path : {phonePath, tabletPath, QString(), "no path"_qs}) {
        m_centrals->disconnect(Central(path), [&ends](const QDBusError& error) { ends << error.name(); });
    }
    m_centrals->disconnect(Central());
    QVERIFY(ends.isEmpty());
    EVENTUALLY_COMPARE(ends.size(), 4);
    QCOMPARE(ends.count("org.bluez.Error.NotConnected"_qs), 4);
    QVERIFY(m_bluez->calls.isEmpty());
}

void tst_central_ends::slotsMayDeleteTheObject_data()
{
    QTest::addColumn<QString>("signal");
    for (const char* signal : {"centralConnected", "centralChanged", "centralDisconnected"}) {
        QTest::newRow(signal) << QString::fromLatin1(signal);
    }
}

void tst_central_ends::slotsMayDeleteTheObject()
{
    QFETCH(QString, signal);
    const QPointer<Centrals> victim = new Centrals("hci0"_qs);
    const auto end = [victim] { delete victim.data(); };
    connect(victim, &Centrals::centralConnected, this,
            [=] { signal == "centralConnected"_qs ? end() : void(); });
    connect(victim, &Centrals::centralChanged, this, [=] { signal == "centralChanged"_qs ? end() : void(); });
    connect(victim, &Centrals::centralDisconnected, this,
            [=] { signal == "centralDisconnected"_qs ? end() : void(); });
    start();
    m_bluez->add(phonePath, phone());
    m_bluez->add(tabletPath, phone());
    m_bluez->change(phonePath, device, {{"Trusted"_qs, true}});
    m_bluez->change(hci0, adapter, {{"Address"_qs, "00:AA:01:00:00:09"_qs}});
    m_bluez->vanish();
    EVENTUALLY_VERIFY(!victim);
    EVENTUALLY_VERIFY(m_centrals->connected().isEmpty());
}

void tst_central_ends::slotsMayDeleteTheAttributeThatIsAsked_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("member");
    QTest::addColumn<bool>("hasSockets");
    for (const char* member : {"ReadValue", "WriteValue", "AcquireNotify"}) {
        QTest::addRow("%s of a characteristic", member)
            << "/app/aaaa/c0"_qs << QString::fromLatin1(member) << false;
    }
    for (const char* member : {"AcquireNotify", "AcquireWrite"}) {
        QTest::addRow("%s with sockets", member) << "/app/aaaa/c0"_qs << QString::fromLatin1(member) << true;
    }
    for (const char* member : {"ReadValue", "WriteValue"}) {
        QTest::addRow("%s of a descriptor", member)
            << "/app/aaaa/c0/d0"_qs << QString::fromLatin1(member) << false;
    }
}

/** A request tells the MTU, which centralChanged() passes on before the request is handled. */
void tst_central_ends::slotsMayDeleteTheAttributeThatIsAsked()
{
    QFETCH(QString, path);
    QFETCH(QString, member);
    QFETCH(bool, hasSockets);
    Attributes tree(plim::Access().read().write().writeWithoutResponse().notify());
    tree.characteristic->trackSubscribers();
    if (hasSockets) {
        tree.characteristic->setTransport(plim::Characteristic::Transport::SocketsBothWays);
    }
    tree.characteristic->setReadHandler([](const plim::ReadRequest& request) { request.accept("value"); });
    connect(m_centrals.get(), &Centrals::centralChanged, this, [&] { tree.app.reset(); });
    start();
    m_bluez->add(phonePath, phone());
    settle();
    QVariantList arguments{FakeBluez::options(phonePath, "LE"_qs, 185)};
    if (member == "WriteValue"_qs) {
        arguments.prepend(QByteArray("value"));
    }
    const QString interface =
        path.endsWith("d0"_qs) ? "org.bluez.GattDescriptor1"_qs : "org.bluez.GattCharacteristic1"_qs;
    const QDBusPendingCall call = m_bluez->call(path, member, arguments, interface);
    EVENTUALLY_VERIFY(call.isFinished());
    QVERIFY(!tree.app);
    QCOMPARE(call.error().name(), "org.bluez.Error.Failed"_qs);
}

/** The characteristic knows of the end, though a slot that is called before runs an event loop. */
void tst_central_ends::theEndOfALinkIsNoConfirmation()
{
    const Attributes tree(plim::Access().indicate());
    QSignalSpy confirmed(tree.characteristic, &plim::Characteristic::confirmed);
    start();
    m_bluez->add(phonePath, phone());
    settle();
    bool hasReturned = false;
    QObject context;
    connect(m_centrals.get(), &Centrals::centralDisconnected, &context, [&] {
        const QDBusPendingCall call = m_bluez->call(tree.characteristic->dbusPath(), "Confirm"_qs);
        QTRY_VERIFY(call.isFinished());
        hasReturned = true;
    });
    m_bluez->change(phonePath, device, {{"Connected"_qs, false}});
    QTRY_VERIFY(hasReturned);
    QCOMPARE(confirmed.size(), 0);
}

void tst_central_ends::theObjectMayEndWithADisconnectionUnderWay()
{
    start();
    m_bluez->add(phonePath, phone());
    settle();
    bool called = false;
    auto ending = std::make_unique<Centrals>();
    ending->disconnect(Central(phonePath), [&](const QDBusError&) { called = true; });
    ending->disconnect(Central(tabletPath), [&](const QDBusError&) { called = true; });
    ending.reset();
    EVENTUALLY_COMPARE(m_bluez->calls.size(), 1);
    m_bluez->send(m_bluez->calls.constFirst().createReply());
    settle();
    QVERIFY(!called);
}

QTEST_GUILESS_MAIN(tst_central_ends)
#include "tst_central_ends.moc"
