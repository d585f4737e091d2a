// The results of registrations: problems that are found before anything is sent, BlueZ's answers, and an
// advertisement that is started again.
//
// BlueZ ends the advertisement after its time-out of a minute. Then this program advertises again.

#include "BleManager.h"
#include "GapAdvertisement.h"
#include "GattApplication.h"

#include <QCoreApplication>
#include <log4cplus/configurator.h>
#include <log4cplus/logger.h>

#include <cstdio>

namespace {

void say(const QString& text)
{
    std::printf("%s\n", qPrintable(text));
    std::fflush(stdout);
}

bool isUsable(const BleFindings& problems)
{
    bool usable = true;
    for (const BleFinding& problem : problems) {
        say(problem.text());
        usable = usable && problem.severity != BleFinding::Error;
    }
    return usable;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication program(argc, argv);
    log4cplus::BasicConfigurator::doConfigure();
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::OFF_LOG_LEVEL); // the observer prints the results

    GattApplication app(nullptr, "/com/example/outcomes", "com.example.Outcomes");
    GattService* service = app.createService("c0de0001-5f2a-4d6b-9a57-1f6d0a3b0008", true);
    service->createCharacteristic("c0de0002-5f2a-4d6b-9a57-1f6d0a3b0008", GattCharacteristic::Notify);

    GapAdvertisement adv(nullptr, "/com/example/outcomes/advertisement", GapAdvertisement::SetProperties);
    adv.setLocalName("Outcomes");
    adv.setTimeout(60);

    if (!isUsable(app.problems()) || !isUsable(adv.problems())) {
        return 1;
    }
    BleManager* manager = BleManager::instance();
    manager->setRegistrationObserver([&](const BleRegistrationEvent& event) {
        if (event.superseded) {
            return; // a later step has been sent
        }
        say(event.text());
        if (event.kind == BleRegistrationEvent::AdvertisementReleased) {
            adv.setTimeout(60); // any setter is a new registration
        }
    });
    manager->add(&app);
    manager->add(&adv);
    say("advertisement: " + manager->registrationState(&adv).text());
    return program.exec();
}
