// A peripheral to be stressed from outside. Standard input tells it what to do, one word per line, and each
// line is answered by one on standard output:
//
//   figures   what the process holds, see Figures
//   rebuild   everything is deleted and built anew
//
// The first line it prints is "ready UNIQUE-NAME". It ends with its standard input.

#include "BleManager.h"
#include "Figures.h"
#include "StressPeripheral.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QSocketNotifier>

#include <unistd.h>

#include <cstdio>
#include <memory>

namespace {

void print(const QString& line)
{
    std::printf("%s\n", qPrintable(line));
    std::fflush(stdout);
}

void obey(const QByteArray& order, std::unique_ptr<StressPeripheral>& peripheral)
{
    if (order == "rebuild") {
        peripheral.reset();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        peripheral = std::make_unique<StressPeripheral>();
    }
    print(Figures::now().text());
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication program(argc, argv);
    followObjects();
    buildEveryLogLine();
    auto peripheral = std::make_unique<StressPeripheral>();
    BleManager::instance();
    QByteArray input;
    QSocketNotifier stdinNotifier(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&stdinNotifier, &QSocketNotifier::activated, [&] {
        char buffer[256];
        const ssize_t count = read(STDIN_FILENO, buffer, sizeof buffer);
        if (count <= 0) {
            program.quit();
            return;
        }
        input.append(buffer, int(count));
        for (int end; (end = int(input.indexOf('\n'))) >= 0; input.remove(0, end + 1)) {
            obey(input.left(end), peripheral);
        }
    });
    print(QStringLiteral("ready ") + QDBusConnection::systemBus().baseService());
    return QCoreApplication::exec();
}
