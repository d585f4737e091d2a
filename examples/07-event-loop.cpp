// A live value that is measured by blocking code, and a clean end on Ctrl-C or SIGTERM.
//
// All objects of the library belong to one thread, which runs the event loop. Code that blocks runs in its
// own thread and passes its results to the first one.

#include "BleManager.h"
#include "GapAdvertisement.h"
#include "GattApplication.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QFile>
#include <QSocketNotifier>
#include <QThread>
#include <log4cplus/configurator.h>
#include <log4cplus/logger.h>

#include <csignal>
#include <iostream>
#include <sys/signalfd.h>

namespace {

const QString clockService = QStringLiteral("c0de0001-5f2a-4d6b-9a57-1f6d0a3b0007");
const QString uptime = QStringLiteral("c0de0002-5f2a-4d6b-9a57-1f6d0a3b0007");

/** Seconds since the machine started. Slow, as sensors are. */
QByteArray measure()
{
    QThread::msleep(100);
    QFile file("/proc/uptime");
    file.open(QIODevice::ReadOnly);
    return file.readAll().split(' ').value(0);
}

} // namespace

int main(int argc, char** argv)
{
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr); // before any thread starts: threads inherit the mask

    QCoreApplication program(argc, argv);
    log4cplus::BasicConfigurator::doConfigure();
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::INFO_LOG_LEVEL);
    QSocketNotifier ended(signalfd(-1, &ends, SFD_CLOEXEC), QSocketNotifier::Read);
    QObject::connect(&ended, &QSocketNotifier::activated, &program, &QCoreApplication::quit);
    // Qt does not reconnect when the bus ends: the program has to end, and its supervisor restarts it.
    QDBusConnection::systemBus().connect({}, "/org/freedesktop/DBus/Local", "org.freedesktop.DBus.Local",
                                         "Disconnected", &program, SLOT(quit()));

    GattApplication app(nullptr, "/com/example/uptime", "com.example.Uptime");
    GattCharacteristic* value =
        app.createService(clockService, true)
            ->createCharacteristic(uptime, GattCharacteristic::Read | GattCharacteristic::Notify);
    QObject::connect(value, &GattCharacteristic::notifyStateChanged, &program, [](bool notifying) {
        std::cout << (notifying ? "subscribed" : "not subscribed") << std::endl;
    });
    BleManager::instance()->add(&app);
    QThread* sensor = QThread::create([value] {
        while (!QThread::currentThread()->isInterruptionRequested()) {
            const QByteArray measured = measure();
            // Do not call setValue() in this thread. The lambda runs in the thread of `value`.
            QMetaObject::invokeMethod(value, [=] { value->setValue(measured); });
        }
    });
    sensor->start();
    const int result = QCoreApplication::exec();
    sensor->requestInterruption();
    sensor->wait();
    delete sensor;
    std::cout << "ended" << std::endl;
    return result; // BlueZ drops the registrations of a program that leaves the bus
}
