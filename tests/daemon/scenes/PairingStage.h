#pragma once

#include "PhoneUser.h"
#include "ProductStage.h"

#include <memory>

/** A device with a pairing agent and one encrypted value, and a phone whose user pairs with it. */
class PairingStage : public ProductStage
{
public:
    /**
     * @param deviceCan      what the device can show and ask
     * @param phoneCan       the same of the phone
     * @param configuration  what the daemon's main.conf is to say
     */
    PairingStage(const QString& deviceCan, const QString& phoneCan, const QByteArray& configuration = {});

    /** Lets everybody pair from now on. */
    void openWindow();

    /** The error of reading the encrypted value. */
    int readError();
    /** Its handle; the phone has to have been connected. */
    quint16 secretHandle() const;
    bool isPaired() const;
    bool isPairable() const;
    /** The bonds of the device's adapter, as the program lists them. */
    QStringList listed();
    /** Whether either side has the link. */
    bool isLinked() const;

    /** The path of the daemon's object for the device on the phone's side. */
    QString deviceSeenFromPhone() const;

    /** The phone starts to pair, and the device is asked a question of this kind, which the command "decide"
     * answers. @return the passkey, if it has one */
    QString ask(const QString& kind);
    /** Expects requestEnded() since the last ask(). */
    void expectEnded(const QString& why);
    /** Expects the pairing to fail for the phone, and brings the link back, which ends with it. */
    void expectFailure(const QString& why);
    /** Expects it to succeed, and the encrypted value to be readable. */
    void expectSuccess(const QString& how);
    /** The device's program ends its bond with the phone. */
    void forgetOnDevice();
    /** The phone ends the link. */
    void endLink();
    /** Waits after the end of a link: the kernel keeps it for a while, and has a fault that shows if a phone
     * connects again before. */
    static void awaitKernel();
    /** Connects after the link was lost. */
    void reconnect();

    std::unique_ptr<PhoneUser> user;

private:
    qsizetype m_endedBefore = 0;
};
