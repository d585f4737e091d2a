#include "RegistrationScenario.h"

#include <algorithm>
#include <functional>

using namespace Scenario;

namespace {

const QString alreadyExists = QStringLiteral("org.bluez.Error.AlreadyExists");

/** Whether BlueZ has rejected this step because the object is registered already. */
bool isRejected(const Told& told, const QString& step)
{
    const QVector<Event> events = told.events();
    return std::any_of(events.begin(), events.end(), [&](const Event& event) {
        return event.kind == Event::StepFailed && event.step == step && event.errorName == alreadyExists;
    });
}

/** When the registration has ended in this way, the same error tells that the object is not registered. */
void expectRefusalAfter(const std::function<void(Simulator&, GapAdvertisement&)>& end)
{
    Simulator daemon;
    GapAdvertisement adv(nullptr, "/adv", GapAdvertisement::SetProperties);
    BleManager::instance()->add(&adv);
    EVENTUALLY_COMPARE(phaseOf(adv), State::Registered);
    daemon.answerWithError("RegisterAdvertisement", alreadyExists, "Already Exists");
    const Told told;
    end(daemon, adv);
    EVENTUALLY_VERIFY(isRejected(told, "RegisterAdvertisement"));
    QCOMPARE(BleManager::instance()->registrationState(&adv).phase, State::Refused);
    QCOMPARE(BleManager::instance()->registrationState(&adv).errorName, alreadyExists);
}

} // namespace

/** A daemon that announces its managers twice is asked twice, and rejects what it has already. */
class tst_registration_twice : public QObject
{
    Q_OBJECT

private slots:
    void whatIsRegisteredStaysRegistered();
    void anAnnouncementBeforeTheFirstAnswer();
    void anotherObjectAtTheSamePathIsRefused();
    void afterAChangeItIsARefusal();
    void afterTheProgramUnregisteredItIsARefusal();
    void afterAReleaseItIsARefusal();
    void afterARestartItIsARefusal();
    void addedAgainItIsARefusal();
    void atAnotherAdapterItIsARefusal();
};

void tst_registration_twice::whatIsRegisteredStaysRegistered()
{
    Simulator daemon;
    const Application app("/app");
    const GapAdvertisement adv(nullptr, "/adv", GapAdvertisement::SetProperties);
    BleManager* manager = BleManager::instance();
    manager->add(&app);
    manager->add(&adv);
    EVENTUALLY_COMPARE(phaseOf(app), State::Registered);
    EVENTUALLY_COMPARE(phaseOf(adv), State::Registered);
    const Told told;
    daemon.announce(firstAdapter, {gattManager, advertisingManager});
    EVENTUALLY_VERIFY(isRejected(told, "RegisterApplication") && isRejected(told, "RegisterAdvertisement"));
    QCOMPARE(manager->registrationState(&app).text(), QString("registered at /org/bluez/hci0"));
    QCOMPARE(manager->registrationState(&adv).text(), QString("registered at /org/bluez/hci0"));
    QCOMPARE(manager->registrationState(&adv).errorName, QString());
}

void tst_registration_twice::anAnnouncementBeforeTheFirstAnswer()
{
    Simulator daemon;
    daemon.answerLate("RegisterApplication", 300);
    const Application app("/app");
    const Told told;
    BleManager::instance()->add(&app);
    daemon.announce(firstAdapter, {gattManager});
    EVENTUALLY_VERIFY(isRejected(told, "RegisterApplication"));
    EVENTUALLY_COMPARE(phaseOf(app), State::Registered);
    QCOMPARE(daemon.applications(), QStringList("/app"));
}

void tst_registration_twice::anotherObjectAtTheSamePathIsRefused()
{
    const Simulator daemon;
    const Application app("/app");
    BleManager* manager = BleManager::instance();
    manager->add(&app);
    EVENTUALLY_COMPARE(phaseOf(app), State::Registered);
    const LogCapture log;
    const Application second("/app");
    manager->add(&second);
    EVENTUALLY_COMPARE(phaseOf(second), State::Refused);
    QCOMPARE(manager->registrationState(&second).errorName, alreadyExists);
    QCOMPARE(phaseOf(app), State::Registered);
}

void tst_registration_twice::afterAChangeItIsARefusal()
{
    expectRefusalAfter([](Simulator&, GapAdvertisement& adv) { adv.setAppearance(1); });
}

void tst_registration_twice::afterTheProgramUnregisteredItIsARefusal()
{
    expectRefusalAfter([](Simulator&, GapAdvertisement& adv) {
        BleManager::instance()->unregisterAdv(&adv);
        BleManager::instance()->registerAdv(&adv);
    });
}

void tst_registration_twice::afterAReleaseItIsARefusal()
{
    expectRefusalAfter([](Simulator& daemon, GapAdvertisement& adv) {
        daemon.releaseAdvertisement("/adv");
        EVENTUALLY_COMPARE(phaseOf(adv), State::Dropped);
        BleManager::instance()->registerAdv(&adv);
    });
}

void tst_registration_twice::afterARestartItIsARefusal()
{
    expectRefusalAfter([](Simulator& daemon, GapAdvertisement& adv) {
        daemon.vanish();
        EVENTUALLY_COMPARE(phaseOf(adv), State::WaitingForBlueZ);
        daemon.answerWithError("RegisterAdvertisement", alreadyExists, "Already Exists");
        daemon.appear();
    });
}

void tst_registration_twice::addedAgainItIsARefusal()
{
    expectRefusalAfter([](Simulator&, GapAdvertisement& adv) {
        BleManager::instance()->remove(&adv);
        BleManager::instance()->add(&adv);
    });
}

void tst_registration_twice::atAnotherAdapterItIsARefusal()
{
    expectRefusalAfter([](Simulator& daemon, GapAdvertisement&) { daemon.addAdapter("hci1"); });
}

QTEST_GUILESS_MAIN(tst_registration_twice)
#include "tst_registration_twice.moc"
