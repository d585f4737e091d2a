#include "RegistrationScenario.h"

using namespace Scenario;

/** Answers that come too late, as an observer of the manager is told. */
class tst_registration_overtaken : public QObject
{
    Q_OBJECT

private slots:
    void theFirstOfTwoAnswersToAChangeIsOvertaken();
    void anAnswerAboutADeletedObjectIsOvertaken();
    void anAnswerAboutARemovedObjectIsOvertaken();
    void anAnswerThatADeadDaemonOwesIsOvertaken();
};

void tst_registration_overtaken::theFirstOfTwoAnswersToAChangeIsOvertaken()
{
    const Simulator daemon(acceptEverything);
    GapAdvertisement adv(nullptr, "/adv");
    Told told;
    BleManager::instance()->add(&adv);
    EVENTUALLY_COMPARE(told.events().size(), 1);
    told.clear();
    adv.setAppearance(1);
    EVENTUALLY_COMPARE(
        told.sortedLines(),
        QStringList({"RegisterAdvertisement of /adv at /org/bluez/hci0: done",
                     "UnregisterAdvertisement of /adv at /org/bluez/hci0: done (superseded)"}));
    for (const Event& event : told.events()) {
        QCOMPARE(event.superseded, event.step == "UnregisterAdvertisement");
    }
}

void tst_registration_overtaken::anAnswerAboutADeletedObjectIsOvertaken()
{
    const Simulator daemon;
    auto app = std::make_unique<Application>("/app");
    const Told told;
    BleManager::instance()->add(app.get());
    app.reset();
    EVENTUALLY_COMPARE(told.events().size(), 1);
    QCOMPARE(told.events().at(0).objectPath, QString("/app"));
    QVERIFY(told.events().at(0).superseded);
}

void tst_registration_overtaken::anAnswerAboutARemovedObjectIsOvertaken()
{
    Simulator daemon;
    daemon.answerLate("RegisterApplication", 3000);
    const Application app("/app");
    const Told told;
    BleManager::instance()->add(&app);
    daemon.settle(); // nothing here takes long: the answer may not come before the removal
    QCOMPARE(daemon.applications(), QStringList("/app"));
    BleManager::instance()->remove(&app);
    EVENTUALLY_COMPARE(told.events().size(), 2);
    for (const Event& event : told.events()) {
        QCOMPARE(event.superseded, event.step == "RegisterApplication");
    }
}

void tst_registration_overtaken::anAnswerThatADeadDaemonOwesIsOvertaken()
{
    Simulator daemon;
    daemon.neverAnswer("RegisterApplication");
    const Application app("/app");
    const Told told;
    BleManager::instance()->add(&app);
    daemon.settle();
    daemon.vanish();
    EVENTUALLY_COMPARE(told.events().size(), 3);
    QCOMPARE(told.events().at(0).kind, Event::ManagerGone);
    QCOMPARE(told.events().at(2).step, QString("RegisterApplication"));
    QCOMPARE(told.events().at(2).errorName, QString("org.freedesktop.DBus.Error.NoReply"));
    QVERIFY(told.events().at(2).superseded);
}

QTEST_GUILESS_MAIN(tst_registration_overtaken)
#include "tst_registration_overtaken.moc"
