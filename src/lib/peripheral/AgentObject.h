#pragma once

#include "PairingRequest.h"
#include "PendingPairing.h"

#include <QDBusContext>
#include <QDBusObjectPath>
#include <QObject>
#include <QString>

#include <chrono>
#include <memory>
#include <vector>

namespace plim {
namespace detail {

class BluezObjects;

/**
 * The object with the interface org.bluez.Agent1, which BlueZ calls when somebody pairs. It turns calls into
 * requests and ends those that nobody waits for any more. Only one bus name may call it. Internal: not
 * installed.
 */
class AgentObject : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.bluez.Agent1")

public:
    /**
     * Exports itself at a path that no other agent of the process has.
     * @param patience  how long BlueZ waits for an answer; then a request ends even if BlueZ does not say so
     */
    explicit AgentObject(std::chrono::milliseconds patience = std::chrono::seconds(60));

    /** Rejects what is still open. */
    ~AgentObject() override;

    QString path() const { return m_path; }

    /** Lets only this unique bus name call from now on; nobody if it is empty. What another one has asked
     * ends. */
    void setDaemon(const QString& uniqueName);

signals:
    void asked(const plim::PairingRequest& request);
    void ended(const plim::PairingRequest& request);
    void paired(const plim::Central& central);
    /** BlueZ has removed the agent. */
    void released();

public slots:
    // All slots are on the bus.
    void Release();
    QString RequestPinCode(const QDBusObjectPath& device);
    void DisplayPinCode(const QDBusObjectPath& device, const QString& pincode);
    uint RequestPasskey(const QDBusObjectPath& device);
    void DisplayPasskey(const QDBusObjectPath& device, uint passkey, ushort entered);
    void RequestConfirmation(const QDBusObjectPath& device, uint passkey);
    void RequestAuthorization(const QDBusObjectPath& device);
    void AuthorizeService(const QDBusObjectPath& device, const QString& uuid);
    void Cancel();

private:
    bool isDaemon() const;
    void ask(PendingPairing::Question question, const QDBusObjectPath& device);
    void limit(const std::weak_ptr<PendingPairing>& open);
    void show(const QDBusObjectPath& device, const QString& passkey);
    template <typename Condition>
    void endThose(const Condition& condition);
    void endAll();
    void endOf(const QString& central);
    void onChanged(const QString& path, const QString& interface, const QStringList& names);
    void tidy();

    const QString m_path;
    const std::chrono::milliseconds m_patience;
    const std::shared_ptr<BluezObjects> m_bluez;
    QString m_daemon;
    std::vector<std::weak_ptr<PendingPairing>> m_open;
    std::shared_ptr<PendingPairing> m_shown; ///< the program need not keep a passkey that it shows
};

} // namespace detail
} // namespace plim
