#pragma once

#include <QDBusMessage>
#include <QString>
#include <QVariantList>

namespace doctor {

class Report;

/** The system bus, or the one in DBUS_SYSTEM_BUS_ADDRESS. Each call to it has a time-out. */
class Bus
{
public:
    enum class Reach
    {
        Reached,
        Unreachable,
        Silent // a thread is still waiting inside Qt, so the program can only end abruptly
    };

    explicit Bus(int timeoutMs) : m_timeoutMs(timeoutMs) {}

    /** Connects and reports the result. Call it first. */
    Reach reach(Report& report) const;

    int timeoutMs() const { return m_timeoutMs; }

    /** Calls the bus itself. */
    QDBusMessage askBus(const QString& member, const QVariantList& arguments) const;
    /** Calls the Bluetooth daemon, without starting it. */
    QDBusMessage askBluez(const QString& path, const QString& interface, const QString& member,
                          const QVariantList& arguments = {}) const;

    /** "text (name)" of an error answer. */
    static QString errorText(const QDBusMessage& answer);
    /** Whether the answer means that the bus blocked the call. */
    static bool isDenied(const QDBusMessage& answer);

private:
    QDBusMessage ask(const QDBusMessage& question) const;

    int m_timeoutMs;
};

} // namespace doctor
