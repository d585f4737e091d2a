// A lock that a phone opens for five seconds, with a code. To write it, the phone has to be paired, which
// takes an agent on the machine, for instance bluetoothctl. A wrong code is rejected; after three of them,
// the right code too. An indication tells the phone that the lock is open.

#include "BleManager.h"
#include "GapAdvertisement.h"
#include "GattApplication.h"

#include <plim/peripheral.h>

#include <QCoreApplication>
#include <QHash>
#include <QTimer>
#include <log4cplus/configurator.h>
#include <log4cplus/logger.h>

#include <cstdio>

using plim::Access;

namespace {

const QString lockService = QStringLiteral("c0de0001-5f2a-4d6b-9a57-1f6d0a3b0009");
const QString lockCode = QStringLiteral("c0de0002-5f2a-4d6b-9a57-1f6d0a3b0009");
const QString lockState = QStringLiteral("c0de0003-5f2a-4d6b-9a57-1f6d0a3b0009");
constexpr int allowedFailures = 3;

void say(const QString& text)
{
    std::printf("%s\n", qPrintable(text));
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication program(argc, argv);
    log4cplus::BasicConfigurator::doConfigure();
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::INFO_LOG_LEVEL);

    GattApplication app(nullptr, "/com/example/lock", "com.example.Lock");
    auto* service = plim::Service::create(&app, lockService);
    auto* code = plim::Characteristic::create(service, lockCode, Access().write(Access::Encrypted));
    auto* state = plim::Characteristic::create(service, lockState, Access().read().indicate());
    state->setValue("locked");
    QObject::connect(state, &plim::Characteristic::confirmed, [] { say("a phone knows the state"); });

    QTimer relock;
    relock.setSingleShot(true);
    relock.callOnTimeout([state] { state->setValue("locked"); });

    QHash<plim::Central, int> failures;
    code->setWriteHandler([&failures, &relock, state](const plim::WriteRequest& request) {
        int& failed = failures[request.central()];
        if (failed >= allowedFailures) {
            request.reject(plim::AttError::InsufficientAuthorization);
        } else if (request.value() != "2580") {
            ++failed;
            say("wrong code from " + request.central().path());
            request.reject(plim::AttError::application(0x80)); // "wrong code", in the description of the lock
        } else {
            failed = 0;
            request.accept();
            state->setValue("open");
            relock.start(5000);
        }
    });

    GapAdvertisement adv(nullptr, "/com/example/lock/advertisement", GapAdvertisement::SetProperties);
    adv.setLocalName("Lock");
    adv.setServiceUUIDs({lockService});

    BleManager::instance()->add(&app);
    BleManager::instance()->add(&adv);
    return program.exec();
}
