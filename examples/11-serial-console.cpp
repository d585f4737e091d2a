// A serial console over BLE: any terminal app for phones that knows the UART service can talk to it, line by
// line. Type help.

#include "BleManager.h"
#include "GattApplication.h"

#include <plim/peripheral.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTextStream>
#include <log4cplus/configurator.h>
#include <log4cplus/logger.h>

#include <cstdio>

namespace {

void say(const QString& text)
{
    std::printf("%s\n", qPrintable(text));
    std::fflush(stdout);
}

/** What a command is answered with. It would work the same with a QSerialPort or a QTcpSocket. */
class Console
{
public:
    explicit Console(QIODevice* device) : m_device(device) { m_running.start(); }

    void answer()
    {
        while (m_device->canReadLine()) {
            const QString line = QString::fromUtf8(m_device->readLine()).trimmed();
            QTextStream out(m_device); // sends what it was given when it ends
            out << reply(line) << '\n';
        }
        if (m_device->bytesAvailable() > 1000) {
            m_device->readAll(); // no command is that long
        }
    }

private:
    QString reply(const QString& line)
    {
        const QString command = line.section(' ', 0, 0);
        const QString argument = line.section(' ', 1);
        if (command == "help") {
            return "help, uptime, led on|off, echo TEXT";
        }
        if (command == "uptime") {
            return QString("up for %1 s").arg(m_running.elapsed() / 1000);
        }
        if (command == "led" && (argument == "on" || argument == "off")) {
            say("led " + argument); // tell the hardware here
            return "ok";
        }
        if (command == "echo") {
            return argument;
        }
        return "error: type help";
    }

    QIODevice* m_device;
    QElapsedTimer m_running;
};

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication program(argc, argv);
    log4cplus::BasicConfigurator::doConfigure();
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::WARN_LOG_LEVEL);

    GattApplication app(nullptr, "/com/example/console", "com.example.Console");
    plim::Stream serial(&app);
    Console console(&serial);
    QObject::connect(&serial, &QIODevice::readyRead, [&console] { console.answer(); });
    QObject::connect(&serial, &plim::Stream::connected, [&serial](const plim::Central& central) {
        say("a phone: " + central.path());
        QTextStream(&serial) << "welcome, type help\n";
    });
    QObject::connect(&serial, &plim::Stream::disconnected,
                     [](const plim::Central&, qint64 unsentBytes, qint64 unreadBytes) {
                         say(QString("the phone has gone, %1 bytes not sent, %2 bytes not read")
                                 .arg(unsentBytes)
                                 .arg(unreadBytes));
                     });

    plim::Advertisement adv(nullptr, "/com/example/console/advertisement");
    adv.setLocalName("Console");
    adv.setServiceUUIDs({plim::StreamService().service});
    BleManager::instance()->add(&app);
    BleManager::instance()->add(&adv);
    return program.exec();
}
