#pragma once

#include <QDBusContext>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QObject>
#include <QString>
#include <QStringList>

/**
 * The phone's side of a pairing, through BlueZ: it lets the phone's adapter pair with the device, and answers
 * what the daemon asks the phone's user, as the scene says. Its agent is not the default one, so that the
 * device's questions do not come here.
 */
class PhoneUser : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.bluez.Agent1")

public:
    /**
     * @param device      the daemon's object for the device on the phone's side
     * @param capability  what the phone can show and ask
     */
    PhoneUser(const QString& device, const QString& capability);
    ~PhoneUser() override;

    /** Starts to pair; result() tells how it fails. */
    void pair();
    /** The phone's user gives up. */
    void cancel();
    /** The error's text, empty until it has failed. After a success "paired", as soon as the daemon has found
     * the device's services, which it cannot while an AttClient has the link. */
    QString result() const { return m_result; }

    /** The six digits that the phone shows; empty where it shows none. */
    QString shown() const { return m_shown; }
    /** Whether the phone asks for a passkey. */
    bool isAskedForPasskey() const { return m_typing.type() == QDBusMessage::MethodCallMessage; }
    /** Its user types this. */
    void type(const QString& passkey);
    /** What the daemon asked, without repetitions. */
    QStringList asked() const { return m_asked; }

public slots:
    void Release() {}
    void Cancel();
    void RequestAuthorization(const QDBusObjectPath& device);
    void RequestConfirmation(const QDBusObjectPath& device, uint passkey);
    void DisplayPasskey(const QDBusObjectPath& device, uint passkey, ushort entered);
    uint RequestPasskey(const QDBusObjectPath& device);

private:
    const QString m_device;
    QString m_result;
    int m_attempt = 0;
    QString m_shown;
    QStringList m_asked;
    QDBusMessage m_typing;
};
