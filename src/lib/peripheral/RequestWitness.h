#pragma once

#include <QObject>
#include <QString>
#include <QVariantMap>

#include <memory>

class QDBusMessage;

namespace plim {
namespace detail {

class BluezObjects;

/** Passes on what BlueZ says with requests about the link that they came over. Internal: not installed. */
class RequestWitness : public QObject
{
    Q_OBJECT

public:
    /** The one of this thread; it lives as long as somebody holds it. */
    static std::shared_ptr<RequestWitness> shared();

    /** To be called for each request, with its options; does nothing where nobody holds the one of this
     * thread. What comes before BlueZ has described its objects is passed on then: until then nobody can tell
     * what it is about. */
    static void note(const QDBusMessage& request, const QVariantMap& options);

signals:
    /**
     * @param caller  who has called, which may not have been BlueZ
     * @param device  the path of the object at the other end of the link
     * @param link    "LE" or "BR/EDR"; empty where it is not known
     * @param mtu     in bytes; 0 where it is not known
     */
    void requested(const QString& caller, const QString& device, const QString& link, int mtu);

private:
    /** What a request says. */
    struct Request
    {
        QString caller;
        QString device;
        QString link;
        int mtu;
    };

    RequestWitness();
    void pass(const Request& request);
    void tell(const Request& request);

    const std::shared_ptr<BluezObjects> m_bluez;
    int m_waiting = 0;
};

} // namespace detail
} // namespace plim
