#include "SimulatedPhone.h"

#include <QDBusConnectionInterface>
#include <QDBusMetaType>
#include <QDeadlineTimer>
#include <QThread>

#include <cstdio>
#include <cstdlib>

namespace {

const QString service = QStringLiteral("org.plim.BluezSimulator");
const QString controlPath = QStringLiteral("/org/plim/BluezSimulator");
const QString controlInterface = QStringLiteral("org.plim.BluezSimulator1");

QVariant objectPath(const QString& path)
{
    return QVariant::fromValue(QDBusObjectPath(path));
}

} // namespace

SimulatedPhone::SimulatedPhone()
{
    registerDBusTypes();
    qDBusRegisterMetaType<QByteArrayList>();
    await("the simulator",
          [] { return QDBusConnection::systemBus().interface()->isServiceRegistered(service).value(); });
}

DBusManagedObjectList SimulatedPhone::tree(const QString& application) const
{
    return ask<DBusManagedObjectList>("Tree", {objectPath(application)});
}

QString SimulatedPhone::find(const DBusManagedObjectList& tree, const QString& uuid) const
{
    for (auto object = tree.cbegin(); object != tree.cend(); ++object) {
        for (const QVariantMap& properties : *object) {
            if (properties.value("UUID") == uuid) {
                return object.key().path();
            }
        }
    }
    fail("nothing in the tree has the UUID " + uuid);
}

QByteArray SimulatedPhone::read(const QString& path) const
{
    return ask<QByteArray>("ReadLong", {objectPath(path)});
}

QByteArrayList SimulatedPhone::readPages(const QString& data, const QString& control) const
{
    return ask<QByteArrayList>("ReadPages", {objectPath(data), objectPath(control)});
}

void SimulatedPhone::write(const QString& path, const QByteArray& value) const
{
    call("Write", {objectPath(path), value, QVariant::fromValue(ushort(0))});
}

QByteArrayList SimulatedPhone::notifications(const QString& path, int count) const
{
    call("Subscribe", {objectPath(path)});
    QByteArrayList values;
    await("notifications", [&] {
        values = ask<QByteArrayList>("Notifications", {objectPath(path)});
        return values.size() >= count;
    });
    call("Unsubscribe", {objectPath(path)});
    return values.mid(0, count);
}

QVariantMap SimulatedPhone::advertisement(const QString& path) const
{
    return ask<QVariantMap>("Advertisement", {objectPath(path)});
}

void SimulatedPhone::restartDaemon() const
{
    call("Restart");
}

void SimulatedPhone::awaitRegistration(const QString& application, const QString& advertisement) const
{
    await("the application to be registered", [&] { return isRegistered("Applications", application); });
    await("the advertisement to be registered",
          [&] { return isRegistered("Advertisements", advertisement); });
}

bool SimulatedPhone::isRegistered(const QString& member, const QString& path) const
{
    const auto references = call(member).arguments().value(0).value<QDBusArgument>();
    bool found = false;
    references.beginArray();
    while (!references.atEnd()) {
        QString owner;
        QDBusObjectPath object;
        references.beginStructure();
        references >> owner >> object;
        references.endStructure();
        found = found || object.path() == path;
    }
    references.endArray();
    return found;
}

void SimulatedPhone::await(const char* what, const std::function<bool()>& condition) const
{
    const QDeadlineTimer deadline(10000);
    while (!condition()) {
        if (deadline.hasExpired()) {
            fail(QStringLiteral("timed out waiting for ") + what);
        }
        QThread::msleep(10);
    }
}

void SimulatedPhone::fail(const QString& message)
{
    std::fflush(stdout);
    std::fprintf(stderr, "demo-phone: %s\n", qPrintable(message));
    std::exit(1);
}

QDBusMessage SimulatedPhone::call(const QString& member, const QVariantList& arguments) const
{
    QDBusMessage message = QDBusMessage::createMethodCall(service, controlPath, controlInterface, member);
    message.setArguments(arguments);
    const QDBusMessage reply = QDBusConnection::systemBus().call(message);
    if (reply.type() == QDBusMessage::ErrorMessage) {
        fail(member + ": " + reply.errorMessage());
    }
    return reply;
}
