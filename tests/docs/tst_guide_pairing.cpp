// What docs/guide.md says of tests of pairing.

#include "Eventually.h"
#include "PlimBleTest.h"

#include <plim/peripheral.h>

class TestGuidePairing : public QObject
{
    Q_OBJECT

private slots:
    void aPhonePairs()
    {
        const PlimBleTest ble;
        plim::PairingAgent agent(plim::PairingAgent::DisplayOnly);
        QString shown;
        QObject::connect(&agent, &plim::PairingAgent::requested, &agent,
                         [&](const plim::PairingRequest& request) { shown = request.passkey(); });
        EVENTUALLY_COMPARE(agent.state(), plim::PairingAgent::Registered);
        agent.openPairingWindow(60);
        PlimBleTest::Phone phone;
        phone.pair("KeyboardDisplay");
        EVENTUALLY_COMPARE(shown.size(), 6);
        phone.typePasskey(shown);
        EVENTUALLY_COMPARE(phone.pairing(), QString("paired"));
    }
};

QTEST_GUILESS_MAIN(TestGuidePairing)
#include "tst_guide_pairing.moc"
