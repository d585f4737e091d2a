#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

class Peripheral;

/**
 * Where the checks run: the real daemon with a phone on the second controller, or the stand-in daemon with
 * the phone that it plays. What one does and the other does not is a fault of the stand-in.
 */
class CheckEnvironment
{
public:
    virtual ~CheckEnvironment() = default;

    /** The daemon's version, "5.66" or "5.82". */
    virtual QString version() const = 0;
    /** The object path of the adapter that the device under test has. */
    virtual QString adapter() const = 0;
    /** The bytes that the controller can broadcast at once. */
    virtual int advertisingLimit() const = 0;
    /** After a refused advertisement: where the daemon has not survived it, starts it again. */
    virtual void recover() = 0;

    /** The phone connects to the peripheral, which is registered. */
    virtual void meet(Peripheral& peripheral) = 0;
    virtual QByteArray read(const QString& uuid, quint16 offset) = 0;
    virtual void write(const QString& uuid, const QByteArray& value, quint16 offset) = 0;
    virtual void subscribe(const QString& uuid) = 0;
    virtual void unsubscribe(const QString& uuid) = 0;
    virtual QList<QByteArray> notified(const QString& uuid) = 0;
};

/** What a connected phone does, and what the daemon makes of it. How many checks failed is in
 * Expect::failures(). */
void runChecks(CheckEnvironment& environment);

/** What the library finds wrong with applications and advertisements, and what the daemon does with them. */
void runRegistrationChecks(CheckEnvironment& environment);
