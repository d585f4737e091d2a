#include "LogCapture.h"
#include "SocketScenario.h"

#include <QSignalSpy>

#include <fcntl.h>

using plim::Access;
using plim::Central;
using plim::Characteristic;

/** Notifications through sockets, with the test as BlueZ 5.82. */
class tst_sockets : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup() { m_scenario.reset(); }
    void theBusShowsWhatTheAccessNeeds();
    void theBusShowsNothingUnlessItIsAskedFor();
    void aSocketIsGivenThatNeverBlocks();
    void aValueGoesThroughTheSocketAlone();
    void eachSubscriberGetsEachValueOnce();
    void allThatNotifiesUsesTheSockets();
    void withASubscriberOnTheBusAllAreNotifiedOverIt();
    void anEmptyValueGoesOverTheBus();
    void aValueIsCutAt512Bytes();
    void oneCentralAloneIsNotified();
    void aConfirmationIsTold();
    void aHangUpEndsTheSubscription();
    void aNewRegistrationClosesTheSockets();
    void theEndOfBluezClosesTheSockets();
    void afterAChangeBackSocketsAreDeclined();

private:
    QByteArrayList onBus()
    {
        m_listener.ping();
        QByteArrayList values;
        for (const BusMessage& signal : m_listener.takeSignals()) {
            const QString bytes = signal.text.section("<ay ["_qs, 1).section("]>"_qs, 0, 0);
            values << QByteArray::fromHex(bytes.toLatin1());
        }
        return values;
    }
    /** The interfaces of a further characteristic with sockets. */
    QString introspection(const Access& access, Characteristic::Transport transport)
    {
        auto* more = Characteristic::create(m_scenario->tree.service, "c1"_qs, access);
        more->setTransport(transport);
        const QString text = m_listener.introspect(more->dbusPath());
        delete more;
        return text;
    }

    RawBusClient m_listener;
    std::unique_ptr<SocketScenario> m_scenario;
    Characteristic* m_characteristic = nullptr;
    const Central m_phone{phonePath};
    const Central m_tablet{tabletPath};
};

void tst_sockets::initTestCase()
{
    m_listener.match("type='signal',member='PropertiesChanged',path='/app/aaaa/c0'"_qs);
}

void tst_sockets::init()
{
    m_scenario = std::make_unique<SocketScenario>(Access().read().write().notify().indicate());
    m_characteristic = m_scenario->characteristic;
    QVERIFY(m_scenario->ready());
}

void tst_sockets::theBusShowsWhatTheAccessNeeds()
{
    using Transport = Characteristic::Transport;
    const auto shown = [this](const Access& access, Transport transport = Transport::SocketsBothWays) {
        QStringList names;
        const QString text = introspection(access, transport);
        for (const char* name : {"AcquireNotify", "NotifyAcquired", "AcquireWrite", "WriteAcquired"}) {
            if (text.contains(QLatin1Char('"') + QLatin1String(name) + QLatin1Char('"'))) {
                names << QLatin1String(name);
            }
        }
        return names;
    };
    const QStringList notify{"AcquireNotify"_qs, "NotifyAcquired"_qs};
    const QStringList write{"AcquireWrite"_qs, "WriteAcquired"_qs};
    QCOMPARE(shown(Access().read().write().indicate()), notify);
    QCOMPARE(shown(Access().writeWithoutResponse().notify()), notify + write);
    QCOMPARE(shown(Access().writeWithoutResponse()), write);
    QCOMPARE(shown(Access().read().write()), QStringList());
    QCOMPARE(shown(Access().writeWithoutResponse().notify(), Transport::Sockets), notify);
    QCOMPARE(shown(Access().writeWithoutResponse(), Transport::Sockets), QStringList());
    const QString interface = "org.bluez.GattCharacteristic1"_qs;
    QCOMPARE(m_listener.get(m_scenario->path, interface, "NotifyAcquired"_qs).text, "<b false>"_qs);
    QVERIFY(m_listener.get(m_scenario->path, interface, "WriteAcquired"_qs).isError());
}

void tst_sockets::theBusShowsNothingUnlessItIsAskedFor()
{
    auto* plain =
        Characteristic::create(m_scenario->tree.service, "c1"_qs, Access().writeWithoutResponse().notify());
    QVERIFY(!m_listener.introspect(plain->dbusPath()).contains("Acquire"_qs));
    const BusMessage all = m_listener.getAll(plain->dbusPath(), "org.bluez.GattCharacteristic1"_qs);
    QVERIFY2(all.text.contains("Flags"_qs) && !all.text.contains("Acquired"_qs), qPrintable(all.text));
}

void tst_sockets::aSocketIsGivenThatNeverBlocks()
{
    QSignalSpy subscribed(m_characteristic, &Characteristic::subscribed);
    QSignalSpy notifying(m_characteristic, &GattCharacteristic::notifyStateChanged);
    const QDBusMessage answer = m_scenario->acquire("AcquireNotify"_qs, phonePath, 185);
    QCOMPARE(answer.signature(), "hq"_qs);
    QCOMPARE(answer.arguments().at(1).value<quint16>(), quint16(185));
    const int descriptor = answer.arguments().at(0).value<QDBusUnixFileDescriptor>().fileDescriptor();
    QVERIFY(::fcntl(descriptor, F_GETFL) & O_NONBLOCK);
    int type = 0;
    socklen_t size = sizeof type;
    QCOMPARE(::getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &size), 0);
    QCOMPARE(type, int(SOCK_SEQPACKET));
    QCOMPARE(m_characteristic->subscribers(), QList<Central>{m_phone});
    QCOMPARE(subscribed.size(), 1);
    QCOMPARE(notifying, (QList<QVariantList>{{true}}));
    QVERIFY(m_characteristic->notifying());
    QCOMPARE(m_characteristic->maximumLength(m_phone), 182);
    QCOMPARE(m_listener.get(m_scenario->path, "org.bluez.GattCharacteristic1"_qs, "NotifyAcquired"_qs).text,
             "<b true>"_qs);
}

void tst_sockets::aValueGoesThroughTheSocketAlone()
{
    const auto phone = m_scenario->subscribe();
    QVERIFY(phone);
    QVERIFY(m_characteristic->notify("one"));
    QCOMPARE(m_characteristic->value(), QByteArray("one"));
    QCOMPARE(m_characteristic->bytesToWrite(m_phone), 3);
    QCOMPARE(phone->readAll(), QByteArrayList{"one"});
    QCOMPARE(m_characteristic->bytesToWrite(m_phone), 0);
    QCOMPARE(onBus(), QByteArrayList());
}

void tst_sockets::eachSubscriberGetsEachValueOnce()
{
    const auto phone = m_scenario->subscribe(phonePath);
    const auto tablet = m_scenario->subscribe(tabletPath);
    QCOMPARE(m_characteristic->subscribers(), (QList<Central>{m_phone, m_tablet}));
    QByteArrayList values;
    for (int i = 0; i < 100; ++i) {
        values << QByteArray::number(i);
        QVERIFY(m_characteristic->notify(values.last()));
    }
    QCOMPARE(phone->readAll(), values);
    QCOMPARE(tablet->readAll(), values);
    QCOMPARE(onBus(), QByteArrayList());
}

void tst_sockets::allThatNotifiesUsesTheSockets()
{
    const auto phone = m_scenario->subscribe();
    m_characteristic->setValue("set");
    m_characteristic->notifyValueChanged();
    m_characteristic->setWriteHandler(
        [](const plim::WriteRequest& request) { request.accept(plim::WriteRequest::Notify); });
    m_scenario->bluez->send(m_scenario->path, "WriteValue"_qs, {QByteArray("written"), QVariantMap()});
    m_scenario->roundTrip();
    QCOMPARE(phone->readAll(), (QByteArrayList{"set", "set", "written"}));
    QCOMPARE(onBus(), QByteArrayList());
}

void tst_sockets::withASubscriberOnTheBusAllAreNotifiedOverIt()
{
    const auto phone = m_scenario->subscribe();
    m_scenario->bluez->send(m_scenario->path, "StartNotify"_qs);
    m_scenario->roundTrip();
    QVERIFY(m_characteristic->notify("bus"));
    QCOMPARE(phone->readAll(), QByteArrayList());
    QCOMPARE(onBus(), QByteArrayList{"bus"});
    QSignalSpy notifying(m_characteristic, &GattCharacteristic::notifyStateChanged);
    m_scenario->bluez->send(m_scenario->path, "StopNotify"_qs);
    m_scenario->roundTrip();
    QCOMPARE(notifying.size(), 0);
    QCOMPARE(m_characteristic->subscribers(), QList<Central>{m_phone});
    QVERIFY(m_characteristic->notify("socket"));
    QCOMPARE(phone->readAll(), QByteArrayList{"socket"});
    QCOMPARE(onBus(), QByteArrayList());
}

void tst_sockets::anEmptyValueGoesOverTheBus()
{
    const auto phone = m_scenario->subscribe();
    QVERIFY(m_characteristic->notify(""));
    QCOMPARE(onBus(), QByteArrayList{""});
    QVERIFY(!m_characteristic->notify(m_phone, ""));
    QVERIFY(phone->read().isNull());
}

void tst_sockets::aValueIsCutAt512Bytes()
{
    const auto phone = m_scenario->subscribe();
    const QByteArray value(600, 'x');
    QVERIFY(m_characteristic->notify(value));
    QVERIFY(m_characteristic->notify(m_phone, value));
    QCOMPARE(m_characteristic->value(), value);
    QCOMPARE(phone->readAll(), (QByteArrayList{value.left(512), value.left(512)}));
}

void tst_sockets::oneCentralAloneIsNotified()
{
    const auto phone = m_scenario->subscribe(phonePath);
    const auto tablet = m_scenario->subscribe(tabletPath);
    m_characteristic->setValue("all");
    QVERIFY(m_characteristic->notify(m_tablet, "one"));
    QCOMPARE(m_characteristic->value(), QByteArray("all"));
    QCOMPARE(tablet->readAll(), (QByteArrayList{"all", "one"}));
    QCOMPARE(phone->readAll(), QByteArrayList{"all"});
    const LogCapture log(log4cplus::WARN_LOG_LEVEL);
    QVERIFY(!m_characteristic->notify(Central("/stranger"_qs), "two"));
    QCOMPARE(log.texts(log4cplus::WARN_LOG_LEVEL),
             QStringList("3 bytes of /app/aaaa/c0 cannot be sent to /stranger alone"_qs));
}

void tst_sockets::aConfirmationIsTold()
{
    QSignalSpy confirmed(m_characteristic, &Characteristic::confirmed);
    const auto phone = m_scenario->subscribe();
    for (const QByteArray& packet : {QByteArray("\1"), QByteArray("\2"), QByteArray("\1\1"), QByteArray()}) {
        QVERIFY(phone->write(packet));
    }
    QVERIFY(phone->write("\1"));
    EVENTUALLY_COMPARE(confirmed.size(), 2);
    QCOMPARE(m_characteristic->subscribers().size(), 1);
}

void tst_sockets::aHangUpEndsTheSubscription()
{
    auto phone = m_scenario->subscribe(phonePath);
    auto tablet = m_scenario->subscribe(tabletPath);
    QSignalSpy unsubscribed(m_characteristic, &Characteristic::unsubscribed);
    phone.reset();
    QVERIFY(m_characteristic->notify("one")); // perhaps before the hang-up is known
    EVENTUALLY_COMPARE(m_characteristic->subscribers(), QList<Central>{m_tablet});
    QCOMPARE(unsubscribed.size(), 1);
    QCOMPARE(unsubscribed.first().first().value<Central>(), m_phone);
    QVERIFY(m_characteristic->notifying());
    QCOMPARE(tablet->readAll(), QByteArrayList{"one"});
    tablet.reset();
    EVENTUALLY_VERIFY(!m_characteristic->notifying());
    QCOMPARE(m_characteristic->subscribers(), QList<Central>());
    QVERIFY(m_characteristic->notify("nobody"));
    QCOMPARE(onBus(), QByteArrayList());
    phone = m_scenario->subscribe(phonePath);
    QVERIFY(phone && m_characteristic->notify("again"));
    QCOMPARE(phone->readAll(), QByteArrayList{"again"});
}

void tst_sockets::aNewRegistrationClosesTheSockets()
{
    const auto phone = m_scenario->subscribe();
    m_scenario->bluez->send(m_scenario->path, "StartNotify"_qs);
    m_scenario->roundTrip();
    m_scenario->tree.app->createService("bbbb"_qs, true);
    QCOMPARE(m_characteristic->subscribers(), QList<Central>());
    QVERIFY(!m_characteristic->notifying());
    EVENTUALLY_VERIFY(phone->isHungUp());
    const auto again = m_scenario->subscribe();
    QVERIFY(again && m_characteristic->notify("one"));
    QCOMPARE(again->readAll(), QByteArrayList{"one"});
    QCOMPARE(onBus(), QByteArrayList());
}

void tst_sockets::theEndOfBluezClosesTheSockets()
{
    const auto phone = m_scenario->subscribe();
    m_scenario->bluez->vanish();
    EVENTUALLY_VERIFY(phone->isHungUp());
    QVERIFY(!m_characteristic->notifying());
}

void tst_sockets::afterAChangeBackSocketsAreDeclined()
{
    const auto phone = m_scenario->subscribe(phonePath);
    m_characteristic->setTransport(Characteristic::Transport::Bus);
    QVERIFY(m_characteristic->notify("one"));
    QCOMPARE(phone->readAll(), QByteArrayList{"one"});
    QCOMPARE(m_scenario->acquire("AcquireNotify"_qs, tabletPath).errorName(),
             "org.bluez.Error.NotSupported"_qs);
}

QTEST_GUILESS_MAIN(tst_sockets)
#include "tst_sockets.moc"
