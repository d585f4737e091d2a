// A device with a display and buttons, which the terminal plays: p to pair, y or n to answer, l to list the
// bonded phones, r for a factory reset, each with Enter. Only a bonded phone can read the value.

#include "BleManager.h"
#include "GapAdvertisement.h"
#include "GattApplication.h"

#include <plim/peripheral.h>

#include <QCoreApplication>
#include <QFile>
#include <QSocketNotifier>
#include <log4cplus/configurator.h>
#include <log4cplus/logger.h>

#include <cstdio>

using plim::Access;
using plim::PairingAgent;
using plim::PairingRequest;

namespace {

const QString diaryService = QStringLiteral("c0de0001-5f2a-4d6b-9a57-1f6d0a3b000a");
const QString diaryEntry = QStringLiteral("c0de0002-5f2a-4d6b-9a57-1f6d0a3b000a");

void display(const QString& text)
{
    std::printf("%s\n", qPrintable(text));
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication program(argc, argv);
    log4cplus::BasicConfigurator::doConfigure();
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::WARN_LOG_LEVEL);

    PairingAgent agent(PairingAgent::DisplayYesNo);
    plim::Bonds bonds;
    PairingRequest question; // the one that the display shows
    QObject::connect(&agent, &PairingAgent::requested, &program, [&](const PairingRequest& request) {
        question = request;
        display(request.kind() == PairingRequest::CompareNumbers
                    ? "does the phone show " + request.passkey() + "? (y or n)"
                    : "let " + request.central().path() + " pair? (y or n)");
    });
    QObject::connect(&agent, &PairingAgent::requestEnded, &program,
                     [] { display("the phone has given up"); });
    QObject::connect(&agent, &PairingAgent::pairingWindowClosed, &program, [] { display("pairing ends"); });
    QObject::connect(&bonds, &plim::Bonds::added, &program, [&](const plim::Bond& bond) {
        agent.closePairingWindow(); // one phone for each press of the button
        display("paired: " + bond.address);
    });
    QObject::connect(&bonds, &plim::Bonds::allForgotten, &program, [](const QString& error) {
        display(error.isEmpty() ? "all phones forgotten" : "not all forgotten: " + error);
    });

    QFile keys;
    keys.open(fileno(stdin), QIODevice::ReadOnly | QIODevice::Unbuffered);
    QSocketNotifier keyPressed(fileno(stdin), QSocketNotifier::Read);
    QObject::connect(&keyPressed, &QSocketNotifier::activated, &program, [&] {
        const QByteArray line = keys.readLine();
        const QByteArray key = line.trimmed();
        if (line.isEmpty()) {
            keyPressed.setEnabled(false); // the end of the input
        } else if (key == "p") {
            agent.openPairingWindow(60);
            display("waiting for a phone");
        } else if (key == "y") {
            question.accept();
        } else if (key == "n") {
            question.reject();
        } else if (key == "l") {
            for (const plim::Bond& bond : bonds.bonds()) {
                display(bond.address + (bond.isConnected ? " connected" : " away"));
            }
            display(QString("%1 bonded").arg(bonds.bonds().size()));
        } else if (key == "r") {
            agent.closePairingWindow();
            bonds.forgetAll();
        }
    });

    GattApplication app(nullptr, "/com/example/diary", "com.example.Diary");
    auto* service = plim::Service::create(&app, diaryService);
    auto* entry = plim::Characteristic::create(service, diaryEntry, Access().read(Access::SecureConnections));
    entry->setValue("dear diary");
    GapAdvertisement adv(nullptr, "/com/example/diary/advertisement", GapAdvertisement::SetProperties);
    adv.setLocalName("Diary");
    adv.setServiceUUIDs({diaryService});

    BleManager::instance()->add(&app);
    BleManager::instance()->add(&adv);
    return program.exec();
}
