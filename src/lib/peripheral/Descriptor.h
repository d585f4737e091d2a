#pragma once

#include "Access.h"
#include "PlimPeripheralExport.h"
#include "ReadRequest.h"
#include "WriteRequest.h"

#include "GattDescriptor.h"

#include <QDBusContext>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <memory>

namespace plim {

namespace detail {
class AttributeServer;
class TreeProblems;
} // namespace detail

/**
 * A descriptor with protected access, and with requests that name the central and can be rejected. What is
 * said of Characteristic and its base class holds here, too.
 *
 * Created by create() and owned by its characteristic.
 */
class PLIM_PERIPHERAL_EXPORT Descriptor : public GattDescriptor, protected QDBusContext
{
    Q_OBJECT
    Q_PROPERTY(QStringList Flags READ flags)

public:
    /**
     * Adds a descriptor to a characteristic, which owns it. See GattCharacteristic::addDescriptor().
     *
     * @param characteristic  a characteristic of this layer or of the base layer; not null
     * @param uuid            as GattCharacteristic::addDescriptor() takes it
     * @param access          for reads, and writes with a response; the rest is ignored
     * @param pathElement     what the object path ends in, of letters, digits and "_"; empty for the UUID
     * with "_" for "-". The base class uses "desc" and a number instead.
     * @return the descriptor; null only if a slot of handlesChanged() or applicationChanged() deleted it at
     * once
     */
    static Descriptor* create(GattCharacteristic* characteristic, const QString& uuid, const Access& access,
                              const QString& pathElement = QString());

    /** Rejects the requests that are still open. */
    ~Descriptor() override;

    /** What centrals may do with it: reads and writes. */
    Access access() const;

    /** BlueZ's names of what the access allows. */
    QStringList flags() const;

    /** Sets the function that answers reads. See Characteristic::setReadHandler(). */
    void setReadHandler(const ReadHandler& handler);

    /** Sets the function that decides on writes. See Characteristic::setWriteHandler(). */
    void setWriteHandler(const WriteHandler& handler);

public slots:
    /** BlueZ's read. */
    QByteArray ReadValue(const QVariantMap& flags);
    /** BlueZ's write. */
    void WriteValue(const QByteArray& value, const QVariantMap& flags);

private:
    friend class detail::TreeProblems;

    Descriptor(GattCharacteristic* characteristic, const QString& uuid, const QString& dbusPath,
               const Access& access);

    const std::unique_ptr<detail::AttributeServer> m_server;
};

} // namespace plim
