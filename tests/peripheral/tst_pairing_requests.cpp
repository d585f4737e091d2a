#include "LogCapture.h"
#include "PairingScenario.h"

using plim::PairingAgent;
using plim::PairingRequest;

/** What a pairing agent is asked, with the stand-in daemon and its phones. */
class tst_pairing_requests : public QObject
{
    Q_OBJECT

private slots:
    void capabilitiesDecideTheQuestion_data();
    void capabilitiesDecideTheQuestion();
    void aRejectedQuestionEndsThePairing_data();
    void aRejectedQuestionEndsThePairing();
    void anAnswerMayComeLaterAndCountsOnce();
    void aPasskeyIsCheckedBeforeItIsSent();
    void aDroppedRequestIsRejected();
    void aShownPasskeyNeedNotBeKept();
    void aRefusedPasskeyEndsTheLink();
    void whoGivesUpEndsTheRequest_data();
    void whoGivesUpEndsTheRequest();
    void aRequestOutlivesItsAgent();
};

void tst_pairing_requests::capabilitiesDecideTheQuestion_data()
{
    QTest::addColumn<int>("device");
    QTest::addColumn<QString>("phone");
    QTest::addColumn<int>("kind");
    const auto row = [](PairingAgent::Capability device, const char* phone, PairingRequest::Kind kind) {
        QTest::addRow("%d %s", device, phone) << int(device) << QString(phone) << int(kind);
    };
    const QList<PairingAgent::Capability> all{PairingAgent::DisplayOnly, PairingAgent::DisplayYesNo,
                                              PairingAgent::KeyboardOnly, PairingAgent::NoInputNoOutput,
                                              PairingAgent::KeyboardDisplay};
    for (const PairingAgent::Capability device : all) {
        row(device, "NoInputNoOutput", PairingRequest::Authorize);
    }
    row(PairingAgent::NoInputNoOutput, "KeyboardDisplay", PairingRequest::Authorize);
    row(PairingAgent::DisplayOnly, "DisplayYesNo", PairingRequest::Authorize);
    row(PairingAgent::DisplayOnly, "KeyboardDisplay", PairingRequest::ShowPasskey);
    row(PairingAgent::DisplayYesNo, "DisplayYesNo", PairingRequest::CompareNumbers);
    row(PairingAgent::DisplayYesNo, "KeyboardDisplay", PairingRequest::CompareNumbers);
    row(PairingAgent::DisplayYesNo, "KeyboardOnly", PairingRequest::ShowPasskey);
    row(PairingAgent::KeyboardOnly, "DisplayYesNo", PairingRequest::EnterPasskey);
    row(PairingAgent::KeyboardOnly, "KeyboardDisplay", PairingRequest::EnterPasskey);
    row(PairingAgent::KeyboardDisplay, "DisplayOnly", PairingRequest::EnterPasskey);
    row(PairingAgent::KeyboardDisplay, "KeyboardDisplay", PairingRequest::CompareNumbers);
    row(PairingAgent::KeyboardDisplay, "KeyboardOnly", PairingRequest::ShowPasskey);
}

void tst_pairing_requests::capabilitiesDecideTheQuestion()
{
    QFETCH(const int, device);
    QFETCH(const QString, phone);
    QFETCH(const int, kind);
    PairingScenario scene{PairingAgent::Capability(device)};
    QVERIFY(scene.isAsked(phone));
    PlimBleTest::Phone& caller = *scene.phone;
    const PairingRequest request = scene.requests.first();
    QCOMPARE(int(request.kind()), kind);
    QCOMPARE(request.central().path(), caller.device());
    switch (request.kind()) {
    case PairingRequest::CompareNumbers:
        QCOMPARE(request.passkey(), caller.passkey());
        QCOMPARE(request.passkey().size(), 6);
        request.accept();
        break;
    case PairingRequest::ShowPasskey:
        caller.typePasskey(request.passkey());
        break;
    case PairingRequest::EnterPasskey:
        request.accept(); // means nothing
        QVERIFY(!request.isAnswered());
        QVERIFY(request.accept(caller.passkey()));
        break;
    default:
        QVERIFY(request.passkey().isEmpty());
        request.accept();
    }
    EVENTUALLY_COMPARE(caller.pairing(), QString("paired"));
    EVENTUALLY_COMPARE(scene.paired.size(), 1);
    QCOMPARE(scene.paired.first().path(), caller.device());
    QVERIFY(request.isAnswered());
    QCOMPARE(scene.ended.size(), kind == PairingRequest::ShowPasskey ? 1 : 0);
}

void tst_pairing_requests::aRejectedQuestionEndsThePairing_data()
{
    QTest::addColumn<int>("device");
    QTest::addColumn<QString>("reason");
    QTest::newRow("authorize") << int(PairingAgent::NoInputNoOutput) << "0x0c Numeric Comparison Failed";
    QTest::newRow("compare") << int(PairingAgent::DisplayYesNo) << "0x0c Numeric Comparison Failed";
    QTest::newRow("enter") << int(PairingAgent::KeyboardOnly) << "0x01 Passkey Entry Failed";
}

void tst_pairing_requests::aRejectedQuestionEndsThePairing()
{
    QFETCH(const int, device);
    QFETCH(const QString, reason);
    PairingScenario scene{PairingAgent::Capability(device)};
    QVERIFY(scene.isAsked());
    scene.requests.first().reject();
    EVENTUALLY_COMPARE(scene.phone->pairing(), "failed: " + reason);
    QVERIFY(scene.paired.isEmpty() && scene.ended.isEmpty());
}

void tst_pairing_requests::anAnswerMayComeLaterAndCountsOnce()
{
    PairingScenario scene;
    QVERIFY(scene.isAsked());
    scene.agent->closePairingWindow(); // what was asked before may still be answered
    QTest::qWait(200);
    QCOMPARE(scene.phone->pairing(), QString("pairing"));
    const PairingRequest copy = scene.requests.first();
    QVERIFY(copy == scene.requests.first() && copy != PairingRequest());
    copy.accept();
    QVERIFY(scene.requests.first().isAnswered());
    scene.requests.first().reject();
    EVENTUALLY_COMPARE(scene.phone->pairing(), QString("paired"));
}

void tst_pairing_requests::aPasskeyIsCheckedBeforeItIsSent()
{
    PairingScenario scene{PairingAgent::KeyboardOnly};
    QVERIFY(scene.isAsked());
    const PairingRequest request = scene.requests.first();
    for (const QString& wrong : QStringList{"", "1234567", "12a", "-1", " 1", "１２３"}) {
        QVERIFY2(!request.accept(wrong), qPrintable(wrong));
    }
    QVERIFY(!request.isAnswered());
    const uint right = scene.phone->passkey().toUInt();
    QVERIFY(request.accept(QString::number((right + 1) % 1000000)));
    EVENTUALLY_COMPARE(scene.phone->pairing(), QString("failed: 0x04 Confirm Value Failed"));
}

void tst_pairing_requests::aDroppedRequestIsRejected()
{
    PairingScenario scene;
    QVERIFY(scene.isAsked());
    const LogCapture log(log4cplus::WARN_LOG_LEVEL);
    scene.requests.clear();
    EVENTUALLY_COMPARE(scene.phone->pairing(), QString("failed: 0x0c Numeric Comparison Failed"));
    QCOMPARE(log.texts(log4cplus::WARN_LOG_LEVEL),
             QStringList("Pairing request of " + scene.phone->device() + " dropped without an answer"));
}

void tst_pairing_requests::aShownPasskeyNeedNotBeKept()
{
    PairingScenario scene{PairingAgent::DisplayOnly};
    QVERIFY(scene.isAsked());
    const QString passkey = scene.requests.takeFirst().passkey();
    scene.phone->typePasskey(passkey);
    EVENTUALLY_COMPARE(scene.ended.size(), 1);
    QCOMPARE(scene.ended.first().passkey(), passkey);
    EVENTUALLY_COMPARE(scene.phone->pairing(), QString("paired"));
}

void tst_pairing_requests::aRefusedPasskeyEndsTheLink()
{
    PairingScenario scene{PairingAgent::DisplayOnly};
    QVERIFY(scene.isAsked());
    scene.requests.first().reject();
    EVENTUALLY_COMPARE(scene.phone->pairing(), QString("failed: the link was lost"));
}

void tst_pairing_requests::whoGivesUpEndsTheRequest_data()
{
    QTest::addColumn<int>("device");
    QTest::addColumn<QString>("who");
    for (const PairingAgent::Capability device : {PairingAgent::NoInputNoOutput, PairingAgent::DisplayYesNo,
                                                  PairingAgent::KeyboardOnly, PairingAgent::DisplayOnly}) {
        for (const char* who : {"phone", "link", "daemon", "time"}) {
            QTest::addRow("%d %s", device, who) << int(device) << QString(who);
        }
    }
}

void tst_pairing_requests::whoGivesUpEndsTheRequest()
{
    QFETCH(const int, device);
    QFETCH(const QString, who);
    if (device == PairingAgent::DisplayOnly && who == "time") {
        return; // nobody waits for an answer to a shown passkey
    }
    PairingScenario scene{PairingAgent::Capability(device)};
    QVERIFY(scene.openWindow());
    scene.ble.setAgentPatience(who == "time" ? 300 : 60000);
    scene.pair();
    EVENTUALLY_COMPARE(scene.requests.size(), 1);
    if (who == "phone") {
        scene.phone->cancelPairing();
    } else if (who == "link") {
        scene.phone->disconnect();
    } else if (who == "daemon") {
        scene.ble.vanish();
    }
    EVENTUALLY_COMPARE(scene.ended, scene.requests);
    QVERIFY(scene.requests.first().isAnswered());
    scene.requests.first().accept(); // does nothing
    scene.requests.first().reject();
    QVERIFY(scene.paired.isEmpty());
    if (who == "time") {
        QCOMPARE(scene.phone->pairing(), QString("failed: the device did not answer"));
    }
}

void tst_pairing_requests::aRequestOutlivesItsAgent()
{
    PairingScenario scene;
    QVERIFY(scene.isAsked());
    scene.agent.reset();
    QVERIFY(scene.requests.first().isAnswered());
    scene.requests.first().accept();
    EVENTUALLY_VERIFY(scene.phone->pairing().startsWith("failed: "));
    EVENTUALLY_VERIFY(!scene.isPairable());
}

QTEST_GUILESS_MAIN(tst_pairing_requests)
#include "tst_pairing_requests.moc"
