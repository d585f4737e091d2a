// Preloaded into a test of the base classes, it makes their factories give the layer's classes instead, as a
// program makes them that asks for nothing more. The test then says where these behave otherwise.

#include "GattApplication.h"
#include "plimlog.h"

#include <plim/peripheral.h>

#include <QHash>

#include <cstdlib>

namespace {

// Only the test itself is meant, not what it starts: busctl is another program, with no factories to replace.
const bool childrenRunWithoutThis = unsetenv("LD_PRELOAD") == 0;

log4cplus::Logger logger = log4cplus::Logger::getInstance("Ble");

/** The base class's options as an access. */
plim::Access accessOf(int option)
{
    plim::Access access;
    access = option & GattCharacteristic::Read ? access.read() : access;
    access = option & GattCharacteristic::Write ? access.write() : access;
    return option & GattCharacteristic::Notify ? access.notify() : access;
}

} // namespace

GattService* GattApplication::createService(const QString& uuid, bool primary)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "uuid: " << uuid << " primary: " << primary);
    return plim::Service::create(this, uuid, primary);
}

GattCharacteristic* GattService::createCharacteristic(const QString& uuid, GattCharacteristic::Option option,
                                                      GattCharacteristic* control)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "uuid: " << uuid);
    return plim::Characteristic::create(this, uuid, accessOf(option), QString(), control);
}

GattDescriptor* GattCharacteristic::addDescriptor(const QString& uuid, GattDescriptor::Option option)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "uuid: " << uuid);
    // The base class counts, and never gives a number again.
    static QHash<const QObject*, int> counts;
    if (!counts.contains(this)) {
        connect(this, &QObject::destroyed, [](const QObject* dying) { counts.remove(dying); });
    }
    const int number = counts[this]++;
    return plim::Descriptor::create(this, uuid, accessOf(option & 3), QStringLiteral("desc%1").arg(number));
}
