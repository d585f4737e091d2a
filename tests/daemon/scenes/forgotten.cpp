// A phone that has forgotten the device, which still has the bond.

#include "Expect.h"
#include "PairingStage.h"
#include "Phone.h"
#include "Remote.h"
#include "scenes.h"

namespace {

/** A device and a phone that have paired; then the phone forgets. */
class ForgottenStage : public PairingStage
{
public:
    /**
     * @param deviceCan  what the device can show and ask
     * @param question   the kind of question to which that leads
     * @param repairing  JustWorksRepairing in main.conf; empty for the default
     */
    ForgottenStage(const QString& deviceCan, const QString& question, const QByteArray& repairing = {})
        : PairingStage(deviceCan, "KeyboardDisplay",
                       repairing.isEmpty() ? QByteArray()
                                           : "[General]\nJustWorksRepairing = " + repairing + '\n'),
          phone(bluetooth.phone(), bluetooth.deviceAddress()),
          m_question("pairing " + question)
    {
        openWindow();
        ask(question);
        peripheral.tell("decide accept");
        expectSuccess("paired");
        endLink();
        awaitKernel();
        phone.forget();
        Expect::that(phone.device().isEmpty(), "the phone has forgotten the device");
        Expect::eventually([this] { return listed() == QStringList{centralPath()}; },
                           "the device has not forgotten the phone");
    }

    /** The phone finds the device, and its user pairs. */
    void pairAgain()
    {
        m_askedBefore = asked();
        if (!phone.discover()) {
            throw Expect::Impossible{"the phone does not see the device"};
        }
        user->pair();
    }

    /** How often the agent has been asked since pairAgain(). */
    qsizetype askedSince() const { return asked() - m_askedBefore; }

    /** The phone pairs, and the agent accepts. */
    void pairAccepted()
    {
        pairAgain();
        Expect::eventually([this] { return askedSince() == 1; }, "the agent is asked");
        peripheral.tell("decide accept");
        expectRepaired("accepted");
    }

    /** Expects both sides to pair, and the phone to read without pairing once more. */
    void expectRepaired(const QString& how)
    {
        Expect::require([this] { return !user->result().isEmpty(); }, how + ": the end of the pairing", 90);
        Expect::equal(user->result(), QString("paired"), how + ": the phone has paired");
        Expect::eventually([this] { return isPaired(); }, "the device, too");
        Expect::eventually([this] { return listed() == QStringList{centralPath()}; }, "its bond is listed");
        endLink();
        awaitKernel();
        central.connectDevice();
        Expect::eventually([this] { return readError() == 0; }, "the phone reads the encrypted value");
    }

    Phone phone;

private:
    qsizetype asked() const { return peripheral.told(m_question).filter(bluetooth.device()).size(); }

    const QString m_question;
    qsizetype m_askedBefore = 0;
};

/** The device asks for encryption as soon as it sees the bonded phone. The phone pairs for that, and the link
 * ends when it cannot; what it reads meanwhile gets the error. */
void failToRead(ForgottenStage& stage)
{
    const QString outcome = stage.central.connectAndRead(stage.secretHandle());
    Expect::that(outcome == "0x0f" || outcome == "link lost", "the phone does not read: " + outcome, outcome);
    Expect::eventually([&] { return !stage.central.connected(); }, "the link does not stay");
    Expect::require([&] { return !stage.isLinked(); }, "the end of the link");
    ForgottenStage::awaitKernel();
}

} // namespace

void Scenes::forgotten()
{
    ForgottenStage stage("NoInputNoOutput", "authorize");
    failToRead(stage);
    stage.pairAgain();
    Expect::require([&] { return !stage.user->result().isEmpty(); }, "the end of the pairing", 90);
    Expect::that(stage.user->result().startsWith("org.bluez.Error.Authentication"),
                 "it cannot pair again: " + stage.user->result(), stage.user->result());
    stage.peripheral.settle();
    Expect::equal(qint64(stage.askedSince()), qint64(0), "the agent is not asked");
    Expect::that(stage.peripheral.told("pairing-refused").isEmpty(), "and hears nothing of it");
    Expect::that(stage.isPaired(), "the device keeps its bond");
    ForgottenStage::awaitKernel();

    stage.forgetOnDevice();
    stage.pairAccepted();
}

void Scenes::repairConfirmed()
{
    ForgottenStage stage("NoInputNoOutput", "authorize", "confirm");
    stage.pairAccepted();
}

void Scenes::repairAlways()
{
    ForgottenStage stage("NoInputNoOutput", "authorize", "always");
    stage.pairAgain();
    stage.expectRepaired("nobody asked");
    Expect::equal(qint64(stage.askedSince()), qint64(0), "the agent is not asked");
}

void Scenes::repairNumbers()
{
    ForgottenStage stage("DisplayYesNo", "compare");
    stage.pairAccepted();
}
