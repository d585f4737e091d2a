#include "RegistrationScenario.h"

using namespace Scenario;

namespace {

const QString firstAddress = QStringLiteral("00:AA:01:00:00:00");
const QString secondAddress = QStringLiteral("00:AA:01:00:00:01");

QStringList registrations(const QString& adapter)
{
    return {QString("/org/bluez/%1 RegisterApplication(/app, {})").arg(adapter),
            QString("/org/bluez/%1 RegisterAdvertisement(/adv, {})").arg(adapter)};
}

/** The calls since the last time. */
QStringList taken(Simulator& daemon)
{
    daemon.settle();
    const QStringList calls = daemon.calls();
    daemon.clearCalls();
    return calls;
}

} // namespace

/** What a manager does after setAdapter(). */
class tst_manager_adapter : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_daemon = std::make_unique<Simulator>(
            QStringList{"--accept-everything", "--adapter", "hci0", "--adapter", "hci1"});
        m_manager = std::make_unique<BleManager>(nullptr);
        m_app = std::make_unique<Application>("/app");
        m_adv = std::make_unique<GapAdvertisement>(nullptr, "/adv");
    }
    void cleanup()
    {
        m_manager.reset();
        m_adv.reset();
        m_app.reset();
        m_daemon.reset();
    }

    void theChosenAdapterIsUsed_data() { choices(); }
    void theChosenAdapterIsUsed();
    void anotherOneThatAppearsChangesNothing();
    void anotherOneThatGoesChangesNothing();
    void afterARestartItIsUsedAgain_data() { choices(); }
    void afterARestartItIsUsedAgain();
    void itIsFollowedToAnotherNumber();
    void itIsFollowedToAnotherNumberAcrossARestart();
    void anAdapterThatARestartTookIsNotUsed();
    void itsNumberIsFollowedToAnotherAddress();
    void nothingIsRegisteredWhileItIsAway();
    void itMayComeAfterTheChoice();
    void anAddressThatComesAfterTheManagersCounts();
    void anAddressThatGoesCountsNoLonger();
    void aLaterChoiceMovesWhatIsHeld();
    void theSameChoiceAgainChangesNothing();
    void anEmptyChoiceTakesAnyAdapter();
    void theObserverHearsOfTheChosenOneOnly();

private:
    static void choices()
    {
        QTest::addColumn<QString>("choice");
        QTest::newRow("name") << "hci1";
        QTest::newRow("address") << secondAddress;
        QTest::newRow("address in lower case") << secondAddress.toLower();
    }
    void addBoth()
    {
        m_manager->add(m_app.get());
        m_manager->add(m_adv.get());
    }

    std::unique_ptr<Simulator> m_daemon;
    std::unique_ptr<BleManager> m_manager;
    std::unique_ptr<Application> m_app;
    std::unique_ptr<GapAdvertisement> m_adv;
};

void tst_manager_adapter::theChosenAdapterIsUsed()
{
    QFETCH(QString, choice);
    m_manager->setAdapter(choice);
    addBoth();
    QCOMPARE(taken(*m_daemon), registrations("hci1"));
}

void tst_manager_adapter::anotherOneThatAppearsChangesNothing()
{
    m_manager->setAdapter("hci1");
    addBoth();
    taken(*m_daemon);
    m_daemon->addAdapter("hci2");
    m_daemon->announce("/org/bluez/hci0", {gattManager, advertisingManager});
    QCOMPARE(taken(*m_daemon), QStringList());
}

void tst_manager_adapter::anotherOneThatGoesChangesNothing()
{
    m_manager->setAdapter(secondAddress);
    addBoth();
    taken(*m_daemon);
    m_daemon->removeAdapter("hci0");
    m_daemon->settle();
    QCOMPARE(m_manager->registrationState(m_app.get()).phase, State::Registered);
    m_app->change();
    QCOMPARE(taken(*m_daemon).size(), 2);
}

void tst_manager_adapter::afterARestartItIsUsedAgain()
{
    QFETCH(QString, choice);
    m_manager->setAdapter(choice);
    addBoth();
    taken(*m_daemon);
    m_daemon->restart();
    QCOMPARE(taken(*m_daemon), registrations("hci1"));
}

void tst_manager_adapter::itIsFollowedToAnotherNumber()
{
    m_manager->setAdapter(secondAddress);
    addBoth();
    taken(*m_daemon);
    m_daemon->removeAdapter("hci1");
    m_daemon->addAdapter("hci1", "00:AA:01:00:00:0A");
    m_daemon->addAdapter("hci2", secondAddress);
    QCOMPARE(taken(*m_daemon), registrations("hci2"));
}

void tst_manager_adapter::itIsFollowedToAnotherNumberAcrossARestart()
{
    m_manager->setAdapter(secondAddress);
    addBoth();
    taken(*m_daemon);
    m_daemon->vanish();
    m_daemon->removeAdapter("hci0");
    m_daemon->removeAdapter("hci1");
    m_daemon->addAdapter("hci0", secondAddress);
    m_daemon->addAdapter("hci1", firstAddress);
    m_daemon->appear();
    QCOMPARE(taken(*m_daemon), registrations("hci0"));
}

void tst_manager_adapter::anAdapterThatARestartTookIsNotUsed()
{
    m_daemon->vanish();
    m_daemon->removeAdapter("hci1");
    m_daemon->appear();
    m_daemon->settle();
    m_manager->setAdapter("hci1");
    addBoth();
    QCOMPARE(taken(*m_daemon), QStringList());
}

void tst_manager_adapter::itsNumberIsFollowedToAnotherAddress()
{
    m_manager->setAdapter("hci1");
    addBoth();
    taken(*m_daemon);
    m_daemon->removeAdapter("hci1");
    m_daemon->addAdapter("hci1", "00:AA:01:00:00:0A");
    QCOMPARE(taken(*m_daemon), registrations("hci1"));
}

void tst_manager_adapter::nothingIsRegisteredWhileItIsAway()
{
    m_manager->setAdapter("hci1");
    m_daemon->removeAdapter("hci1");
    m_daemon->settle();
    addBoth();
    QCOMPARE(taken(*m_daemon), QStringList());
    QCOMPARE(m_manager->registrationState(m_adv.get()).phase, State::WaitingForBlueZ);
    m_daemon->addAdapter("hci1");
    QCOMPARE(taken(*m_daemon), registrations("hci1"));
}

void tst_manager_adapter::itMayComeAfterTheChoice()
{
    m_manager->setAdapter("00:AA:01:00:00:07");
    addBoth();
    QCOMPARE(taken(*m_daemon), QStringList());
    m_daemon->addAdapter("hci7");
    QCOMPARE(taken(*m_daemon), registrations("hci7"));
}

void tst_manager_adapter::anAddressThatComesAfterTheManagersCounts()
{
    m_manager->setAdapter("00:AA:01:00:00:07");
    addBoth();
    m_daemon->announce("/org/bluez/hci7", {gattManager, advertisingManager});
    QCOMPARE(taken(*m_daemon), QStringList());
    m_daemon->announce("/org/bluez/hci7", {"org.bluez.Adapter1"});
    QCOMPARE(taken(*m_daemon), registrations("hci7"));
    m_daemon->announce("/org/bluez/hci7", {gattManager});
    QCOMPARE(taken(*m_daemon), registrations("hci7").mid(0, 1));
}

void tst_manager_adapter::anAddressThatGoesCountsNoLonger()
{
    m_manager->setAdapter(secondAddress);
    addBoth();
    taken(*m_daemon);
    m_daemon->withdraw("/org/bluez/hci1", {"org.bluez.Adapter1", gattManager, advertisingManager});
    m_daemon->announce("/org/bluez/hci1", {gattManager, advertisingManager});
    QCOMPARE(taken(*m_daemon), QStringList());
    QCOMPARE(m_manager->registrationState(m_app.get()).phase, State::WaitingForBlueZ);
}

void tst_manager_adapter::aLaterChoiceMovesWhatIsHeld()
{
    addBoth();
    QCOMPARE(taken(*m_daemon), registrations("hci0"));
    m_manager->setAdapter("hci1");
    QStringList moved{"/org/bluez/hci0 UnregisterApplication(/app)",
                      "/org/bluez/hci0 UnregisterAdvertisement(/adv)"};
    QCOMPARE(taken(*m_daemon), moved + registrations("hci1"));
    m_manager->setAdapter("hci9");
    moved.replaceInStrings("hci0", "hci1");
    QCOMPARE(taken(*m_daemon), moved);
    QCOMPARE(m_manager->registrationState(m_app.get()).phase, State::WaitingForBlueZ);
}

void tst_manager_adapter::theSameChoiceAgainChangesNothing()
{
    m_manager->setAdapter("hci1");
    addBoth();
    taken(*m_daemon);
    m_manager->setAdapter(secondAddress);
    m_manager->setAdapter("hci1");
    QCOMPARE(taken(*m_daemon), QStringList());
}

void tst_manager_adapter::anEmptyChoiceTakesAnyAdapter()
{
    m_manager->setAdapter("hci1");
    addBoth();
    taken(*m_daemon);
    m_manager->setAdapter(QString());
    QCOMPARE(taken(*m_daemon), QStringList());
    m_daemon->addAdapter("hci2");
    QCOMPARE(taken(*m_daemon), registrations("hci2"));
    m_daemon->removeAdapter("hci0"); // whatever adapter goes, as without a choice
    m_daemon->settle();
    QCOMPARE(m_manager->registrationState(m_app.get()).phase, State::WaitingForBlueZ);
}

void tst_manager_adapter::theObserverHearsOfTheChosenOneOnly()
{
    m_manager->setAdapter("hci1");
    const Told told(m_manager.get());
    m_daemon->removeAdapter("hci0");
    m_daemon->addAdapter("hci0");
    m_daemon->settle();
    QCoreApplication::processEvents();
    QCOMPARE(told.lines(), QStringList());
    m_daemon->removeAdapter("hci1");
    EVENTUALLY_COMPARE(told.lines().size(), 2);
}

QTEST_GUILESS_MAIN(tst_manager_adapter)
#include "tst_manager_adapter.moc"
