// Waits for the announcements of daemons that take their names while the event loop begins, and prints how
// many were received. Qt holds back messages only once in a process, so each attempt takes a process.
//
//   announcements-at-start COUNT MICROSECONDS
//
// COUNT is the number of daemons, MICROSECONDS the time from the start of the first one to that of the event
// loop.

#include "AnnouncingDaemon.h"
#include "OrgFreedesktopDBusObjectManagerInterface.h"
#include "plim.h"

#include <QCoreApplication>
#include <QSet>
#include <QTimer>

#include <chrono>
#include <cstdio>
#include <memory>
#include <thread>
#include <vector>

namespace {

constexpr int patienceMs = 10000;

QString nameOf(int daemon)
{
    return QStringLiteral("org.plim.daemon%1").arg(daemon);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication program(argc, argv);
    const int count = program.arguments().value(1).toInt();
    const std::chrono::microseconds delay(program.arguments().value(2).toInt());
    registerDBusTypes();

    QSet<QString> received;
    std::vector<std::unique_ptr<OrgFreedesktopDBusObjectManagerInterface>> proxies;
    for (int i = 0; i < count; ++i) {
        proxies.push_back(std::make_unique<OrgFreedesktopDBusObjectManagerInterface>(
            nameOf(i), QStringLiteral("/"), QDBusConnection::systemBus()));
        plim::connect(proxies.back().get(), &OrgFreedesktopDBusObjectManagerInterface::InterfacesAdded,
                      &program, [&, i](const QDBusObjectPath& object) {
                          if (object.path() == QStringLiteral("/daemon%1").arg(i)) {
                              received << object.path();
                          }
                          if (received.size() == count) {
                              QCoreApplication::quit();
                          }
                      });
    }
    AnnouncingDaemon daemon(QStringLiteral("daemon"));
    std::thread daemons([&daemon, count] {
        for (int i = 0; i < count; ++i) {
            daemon.own(nameOf(i));
            daemon.add(QStringLiteral("/daemon%1").arg(i));
        }
        daemon.flush();
    });
    std::this_thread::sleep_for(delay);
    QTimer::singleShot(patienceMs, &program, &QCoreApplication::quit);
    QCoreApplication::exec();
    daemons.join();
    std::printf("%d\n", int(received.size()));
    return 0;
}
