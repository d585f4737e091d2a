#include "Bus.h"

#include "DBusBluez.h"
#include "Report.h"
#include "User.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusPendingCallWatcher>
#include <QEventLoop>
#include <QTimer>

#include <chrono>
#include <future>
#include <thread>

namespace doctor {

namespace {

constexpr int QuietMs = 2000; // progress is printed only after this time

/** Connects in a separate thread: libdbus may wait for ever for a bus that accepts the connection and sends
 * nothing. */
bool connectWithin(int milliseconds)
{
    auto connected = std::make_shared<std::promise<void>>();
    std::future<void> done = connected->get_future();
    std::thread([connected] {
        QDBusConnection::systemBus();
        connected->set_value();
    }).detach();
    const std::chrono::milliseconds quiet(std::min(QuietMs, milliseconds));
    if (done.wait_for(quiet) == std::future_status::ready) {
        return true;
    }
    Report::progress("waiting for the connection to the bus");
    return done.wait_for(std::chrono::milliseconds(milliseconds) - quiet) == std::future_status::ready;
}

} // namespace

Bus::Reach Bus::reach(Report& report) const
{
    const QString address = qEnvironmentVariable("DBUS_SYSTEM_BUS_ADDRESS");
    const QString where = address.isEmpty() ? QString("at its usual address") : "at " + address;
    const QVariantMap values{{"address", address}};
    if (!connectWithin(m_timeoutMs)) {
        report.problem(
            "bus.silent",
            QString("The system bus %1 does not answer within %2 s.").arg(where).arg(m_timeoutMs / 1000),
            "Restart that bus. The system bus of the machine restarts with the machine.", values);
        return Reach::Silent;
    }
    const QDBusConnection bus = QDBusConnection::systemBus();
    if (bus.isConnected()) {
        report.ok("bus.reached", QString("The system bus %1 answers.").arg(where), values);
        return Reach::Reached;
    }
    report.problem("bus.unreachable",
                   QString("The system bus %1 cannot be reached: %2").arg(where, bus.lastError().message()),
                   address.isEmpty()
                       ? "Start it: systemctl start dbus"
                       : "Unset DBUS_SYSTEM_BUS_ADDRESS, or set it to the address of a running bus.",
                   values);
    return Reach::Unreachable;
}

QDBusMessage Bus::askBus(const QString& member, const QVariantList& arguments) const
{
    QDBusMessage question = QDBusMessage::createMethodCall("org.freedesktop.DBus", "/org/freedesktop/DBus",
                                                           "org.freedesktop.DBus", member);
    question.setArguments(arguments);
    return ask(question);
}

QDBusMessage Bus::askBluez(const QString& path, const QString& interface, const QString& member,
                           const QVariantList& arguments) const
{
    QDBusMessage question = QDBusMessage::createMethodCall(DBusBluezServiceName(), path, interface, member);
    question.setArguments(arguments);
    question.setAutoStartService(false);
    return ask(question);
}

QString Bus::errorText(const QDBusMessage& answer)
{
    return QString("%1 (%2)").arg(answer.errorMessage(), answer.errorName());
}

bool Bus::isDenied(const QDBusMessage& answer)
{
    return answer.errorName() == "org.freedesktop.DBus.Error.AccessDenied";
}

QDBusMessage Bus::ask(const QDBusMessage& question) const
{
    QDBusPendingCallWatcher watcher(QDBusConnection::systemBus().asyncCall(question, m_timeoutMs));
    QEventLoop loop;
    QObject::connect(&watcher, &QDBusPendingCallWatcher::finished, &loop, &QEventLoop::quit);
    QTimer::singleShot(QuietMs, &loop, [member = question.member()] {
        Report::progress("waiting for the answer to " + member);
    });
    if (!watcher.isFinished()) {
        loop.exec();
    }
    return watcher.reply();
}

} // namespace doctor
