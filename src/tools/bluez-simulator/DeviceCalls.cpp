#include "DeviceCalls.h"

#include "AttPhone.h"
#include "Daemon.h"
#include "Names.h"

#include <QDBusMessage>
#include <QDBusObjectPath>

namespace simulator {

bool handleDeviceCall(Daemon& daemon, const QDBusMessage& call)
{
    const ObjectTree& tree = daemon.tree();
    const QString form = call.member() + QLatin1Char(' ') + call.signature();
    if (form == QLatin1String("Disconnect ") && tree.contains(call.path(), Names::Device)) {
        daemon.attPhone(call.path()).loseLink();
        daemon.answer(call, {});
        return true;
    }
    if (form != QLatin1String("RemoveDevice o") || !tree.contains(call.path(), Names::Adapter)) {
        return false;
    }
    const QString device = call.arguments().constFirst().value<QDBusObjectPath>().path();
    if (tree.contains(device, Names::Device) && daemon.attPhone(device).state().adapter == call.path()) {
        daemon.attPhone(device).forget();
        daemon.answer(call, {});
    } else {
        daemon.refuse(call, Refusal::doesNotExist());
    }
    return true;
}

} // namespace simulator
