#include "Descriptor.h"

#include "AttributeServer.h"
#include "GattCharacteristic.h"
#include "TreePath.h"
#include "plimlog.h"

namespace {

/** The base class's options for an access. */
GattDescriptor::Option optionOf(const plim::Access& access)
{
    return GattDescriptor::Option((access.allowsRead() ? GattDescriptor::Read : 0) |
                                  (access.allowsWrite() ? GattDescriptor::Write : 0));
}

} // namespace

plim::Descriptor* plim::Descriptor::create(GattCharacteristic* characteristic, const QString& uuid,
                                           const Access& access, const QString& pathElement)
{
    const detail::TreePath place(characteristic->dbusPath(), uuid, pathElement);
    return static_cast<Descriptor*>(characteristic->record(
        new Descriptor(characteristic, uuid, place.path(), access.ofDescriptor()), place.key()));
}

plim::Descriptor::Descriptor(GattCharacteristic* characteristic, const QString& uuid, const QString& dbusPath,
                             const Access& access)
    : GattDescriptor(characteristic, uuid, dbusPath, optionOf(access)),
      m_server(new detail::AttributeServer(this, access, dbusPath))
{
}

plim::Descriptor::~Descriptor() = default;

plim::Access plim::Descriptor::access() const
{
    return m_server->access();
}

QStringList plim::Descriptor::flags() const
{
    PLIM_LOG_ENTER(plim::bleLogger(), TRACE, "QStringList GattDescriptor::flags() const", "");
    return m_server->access().flags();
}

void plim::Descriptor::setReadHandler(const ReadHandler& handler)
{
    m_server->setReadHandler(handler);
}

void plim::Descriptor::setWriteHandler(const WriteHandler& handler)
{
    m_server->setWriteHandler(handler);
}

QByteArray plim::Descriptor::ReadValue(const QVariantMap& flags)
{
    if (m_server->read(*this, flags)) {
        return {};
    }
    return GattDescriptor::ReadValue(flags);
}

void plim::Descriptor::WriteValue(const QByteArray& value, const QVariantMap& flags)
{
    const auto store = [=](bool /*notify*/) { GattDescriptor::WriteValue(value, flags); };
    if (!m_server->write(*this, value, flags, store)) {
        GattDescriptor::WriteValue(value, flags);
    }
}
