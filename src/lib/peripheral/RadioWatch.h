#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

#include <memory>

class QDBusMessage;

namespace plim {
namespace detail {

class BluezObjects;

/** What puts advertisements off the air, or makes room for them: the adapters' power, suspend, centrals,
 * instances. Internal: not installed. */
class RadioWatch : public QObject
{
    Q_OBJECT

public:
    RadioWatch();

    /** Whether the adapter can broadcast: it is powered, as far as is known, and the machine is not asleep.
     */
    bool isReady(const QString& adapter) const { return !m_isAsleep && isPowered(adapter); }
    bool isPowered(const QString& adapter) const;
    bool isAsleep() const { return m_isAsleep; }
    /** Whether another advertisement fits, as far as is known. */
    bool hasFreeInstance(const QString& adapter) const;

signals:
    /** An adapter was switched on or off. */
    void powerChanged(const QString& adapter, bool isOn);
    /** The machine goes to sleep, or has woken up. */
    void sleepChanged(bool isAsleep);
    /** A device connected. @param device  its object path, which begins with the adapter's */
    void connected(const QString& device);
    /** An adapter can broadcast at least one more advertisement. */
    void instanceFreed(const QString& adapter);

private slots:
    void on_prepareForSleep(const QDBusMessage& signal);

private:
    void on_objectAdded(const QString& path, const QString& interface);
    void on_propertiesChanged(const QString& path, const QString& interface, const QStringList& names);

    const std::shared_ptr<BluezObjects> m_bluez;
    bool m_isAsleep = false;
};

} // namespace detail
} // namespace plim
