#pragma once

#include <QDBusServiceWatcher>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <memory>

class QDBusMessage;
class QDBusObjectPath;

namespace plim {
namespace detail {

/** What BlueZ tells of centrals and of itself. Internal: not installed. */
class DaemonWatch : public QObject
{
    Q_OBJECT

public:
    /** The one of this thread; it lives as long as somebody holds it. */
    static std::shared_ptr<DaemonWatch> shared();

signals:
    /** The link to a central was lost. @param path  the central's object path */
    void disconnected(const QString& path);
    /** BlueZ forgot a central. @param path  the central's object path */
    void forgotten(const QString& path);
    /** BlueZ ended. */
    void ended();

private slots:
    void on_propertiesChanged(const QString& interface, const QVariantMap& changed,
                              const QStringList& invalidated, const QDBusMessage& message);
    void on_interfacesRemoved(const QDBusObjectPath& path, const QStringList& interfaces);

private:
    DaemonWatch();

    QDBusServiceWatcher m_daemon;
};

} // namespace detail
} // namespace plim
