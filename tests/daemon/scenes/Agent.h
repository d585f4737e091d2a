#pragma once

#include <QDBusContext>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QObject>
#include <QString>
#include <QStringList>

/**
 * Answers the daemon's questions when somebody pairs, on both sides: says yes to everything, and types what
 * the other side shows. It is the default agent until it ends.
 */
class Agent : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.bluez.Agent1")

public:
    /** @param capability  what it claims to have, "NoInputNoOutput", "DisplayYesNo", "KeyboardDisplay" */
    explicit Agent(const QString& capability);
    ~Agent() override;

    /** What the daemon asked, as "RequestConfirmation /org/bluez/hci0/dev_00_...", in order. */
    QStringList asked() const { return m_asked; }

public slots:
    void Release() {}
    void Cancel() {}
    void RequestAuthorization(const QDBusObjectPath& device);
    void AuthorizeService(const QDBusObjectPath& device, const QString& uuid);
    void RequestConfirmation(const QDBusObjectPath& device, uint passkey);
    void DisplayPasskey(const QDBusObjectPath& device, uint passkey, ushort entered);
    uint RequestPasskey(const QDBusObjectPath& device);

private:
    void note(const char* question, const QDBusObjectPath& device);

    void typePasskey();

    QStringList m_asked;
    uint m_passkey = 0;
    QDBusMessage m_typing; ///< the question that waits for the passkey to be shown
};
