// A live value, measured by code that blocks, and an orderly end by Ctrl-C or SIGTERM: what a caller's event
// loop and threads look like.
//
// Everything of the library's belongs to one thread, the one whose event loop runs. What blocks has a thread
// of its own and hands its results over.

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

/** Seconds since the start of the machine; takes its time, as sensors do. */
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
    pthread_sigmask(SIG_BLOCK, &ends, nullptr); // first of all, since threads inherit it

    QCoreApplication program(argc, argv);
    log4cplus::BasicConfigurator::doConfigure();
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::INFO_LOG_LEVEL);
    QSocketNotifier ended(signalfd(-1, &ends, SFD_CLOEXEC), QSocketNotifier::Read);
    QObject::connect(&ended, &QSocketNotifier::activated, &program, &QCoreApplication::quit);
    // Qt does not connect to another bus when this one is gone: what supervises the program starts it anew.
    QDBusConnection::systemBus().connect({}, "/org/freedesktop/DBus/Local", "org.freedesktop.DBus.Local",
                                         "Disconnected", &program, SLOT(quit()));

    GattApplication app(nullptr, "/com/example/uptime", "com.example.Uptime");
    GattCharacteristic* value =
        app.createService(clockService, true)
            ->createCharacteristic(uptime, GattCharacteristic::Read | GattCharacteristic::Notify);
    QObject::connect(value, &GattCharacteristic::notifyStateChanged, &program, [](bool notifying) {
        std::cout << (notifying ? "a phone listens" : "no phone listens") << std::endl;
    });
    BleManager::instance()->add(&app);
    QThread* sensor = QThread::create([value] {
        while (!QThread::currentThread()->isInterruptionRequested()) {
            const QByteArray measured = measure();
            // Not setValue() from here: this runs on the thread of `value`, when its event loop gets to it.
            QMetaObject::invokeMethod(value, [=] { value->setValue(measured); });
        }
    });
    sensor->start();
    const int result = QCoreApplication::exec();
    sensor->requestInterruption();
    sensor->wait();
    delete sensor;
    std::cout << "ended" << std::endl;
    return result; // the daemon drops what a program has registered that leaves the bus
}
