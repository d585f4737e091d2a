// The floor of Qt D-Bus: the same answers from bare adaptors, as fast as Qt alone can give them.

#include "BareAdaptors.h"
#include "GattCharacteristic1Adaptor.h"
#include "GattDescriptor1Adaptor.h"
#include "GattService1Adaptor.h"
#include "LEAdvertisement1Adaptor.h"
#include "Layout.h"
#include "PropertiesAdaptor.h"
#include "QtServer.h"

#include <QDBusConnection>
#include <QDBusPendingCallWatcher>

#include <memory>

namespace {

QString text(const std::string& utf8)
{
    return QString::fromStdString(utf8);
}

void exportObject(const QString& path, QObject* object)
{
    if (!QDBusConnection::systemBus().registerObject(path, object)) {
        qFatal("cannot export %s", qPrintable(path));
    }
}

/** The entry of one characteristic in an object manager's answer. */
DBusInterfaceList characteristicEntry(const QString& root, unsigned number)
{
    const QStringList flags{QStringLiteral("read"), QStringLiteral("write"), QStringLiteral("notify")};
    const QVariantMap properties{
        {QStringLiteral("Flags"), flags},
        {QStringLiteral("Notifying"), false},
        {QStringLiteral("Service"),
         QVariant::fromValue(QDBusObjectPath(text(Layout::servicePath(root.toStdString()))))},
        {QStringLiteral("UUID"), text(Layout::uuid(number))},
        {QStringLiteral("Value"), QByteArray()},
    };
    return {{QStringLiteral("org.bluez.GattCharacteristic1"), properties}};
}

/** A getter without a log statement, called as a library's is. */
__attribute__((noinline)) QString get(const QString& member)
{
    return member;
}

class BareQt : public MeasuredServer
{
public:
    BareQt();
    Q_DISABLE_COPY(BareQt)
    void notify(const QByteArray& value) override;
    void grow(const QString& root, unsigned characteristics) override;
    void shrink() override { m_tree.reset(); }
    Meter::Costs build(const QString& what, unsigned count) override;
    void registerTree(const Done& done) override { call("GattManager1", "RegisterApplication", done); }
    void unregisterTree(const Done& done) override { call("GattManager1", "UnregisterApplication", done); }
    void advertise(const Done& done) override;
    void burst(unsigned changes, const Done& done) override;

private:
    void call(const char* manager, const char* method, const Done& done);

    QObject m_root;
    BareNotifier* m_notifier = nullptr;
    std::unique_ptr<QObject> m_tree;
    QString m_treePath;
    QObject m_advertised;
    BareAdvertisement* m_advertisement = nullptr;
};

BareQt::BareQt()
{
    registerDBusTypes();
    for (unsigned i = Layout::Value20; i < Layout::CharacteristicEnd; ++i) {
        auto* object = new QObject(&m_root);
        auto* characteristic = new BareCharacteristic(object);
        characteristic->uuid = text(Layout::uuid(i));
        characteristic->service = QDBusObjectPath(text(Layout::servicePath(Layout::root)));
        // The page that is read is ready.
        characteristic->value = QByteArray(int(qMin(Layout::valueSize(i), 512U)), 'v');
        if (i == Layout::Notifying) {
            m_notifier = new BareNotifier(object);
        }
        exportObject(text(Layout::characteristicPath(Layout::root, i)), object);
    }
}

void BareQt::notify(const QByteArray& value)
{
    emit m_notifier->PropertiesChanged(QStringLiteral("org.bluez.GattCharacteristic1"),
                                       {{QStringLiteral("Value"), value}}, {});
}

void BareQt::grow(const QString& root, unsigned characteristics)
{
    m_treePath = root;
    m_tree = std::make_unique<QObject>();
    auto* manager = new BareObjectManager(m_tree.get());
    const QString service = text(Layout::servicePath(root.toStdString()));
    manager->objects.insert(QDBusObjectPath(service), {{QStringLiteral("org.bluez.GattService1"),
                                                        {{QStringLiteral("Primary"), true},
                                                         {QStringLiteral("UUID"), text(Layout::uuid(0))}}}});
    for (unsigned i = 1; i <= characteristics; ++i) {
        const QString path = text(Layout::characteristicPath(root.toStdString(), i));
        manager->objects.insert(QDBusObjectPath(path), characteristicEntry(root, i));
    }
    exportObject(root, m_tree.get());
}

/** Objects with nothing but the library's adaptors, at the paths at which the library has them. */
Meter::Costs BareQt::build(const QString& what, unsigned count)
{
    const std::string root = "/com/example/build";
    const std::string service = Layout::servicePath(root);
    const std::string characteristic = Layout::characteristicPath(root, 0);
    if (what == QLatin1String("getter")) {
        const QString member = text(root);
        const auto getAll = [&] {
            for (unsigned i = 0; i < count; ++i) {
                get(member);
            }
        };
        return qtCosts(getAll, [] {});
    }
    auto parent = std::make_unique<QObject>();
    const auto build = [&] {
        for (unsigned i = 1; i <= count; ++i) {
            auto* object = new QObject(parent.get());
            QString path;
            if (what == QLatin1String("service")) {
                new GattService1Adaptor(object);
                path = text(root) + '/' + text(Layout::uuid(i)).replace('-', '_');
            } else if (what == QLatin1String("descriptor")) {
                new GattDescriptor1Adaptor(object);
                path = text(characteristic) + "/desc" + QString::number(i - 1);
            } else if (what == QLatin1String("advertisement")) {
                new LEAdvertisement1Adaptor(object);
                path = text(root) + "/a" + QString::number(i);
            } else {
                new GattCharacteristic1Adaptor(object);
                path = text(service) + '/' + text(Layout::uuid(i)).replace('-', '_');
            }
            if (what != QLatin1String("service")) {
                new PropertiesAdaptor(object);
            }
            exportObject(path, object);
        }
    };
    return qtCosts(build, [&] { parent.reset(); });
}

/** An asynchronous call to the daemon about the tree or the advertisement. */
void BareQt::call(const char* manager, const char* method, const Done& done)
{
    auto message = QDBusMessage::createMethodCall(
        QStringLiteral("org.bluez"), QStringLiteral("/org/bluez/hci0"),
        "org.bluez." + QString::fromLatin1(manager), QString::fromLatin1(method));
    const QString path =
        manager == QByteArray("GattManager1") ? m_treePath : QStringLiteral("/com/example/advertisement");
    message << QVariant::fromValue(QDBusObjectPath(path));
    if (QByteArray(method).startsWith("Register")) {
        message << QVariantMap();
    }
    auto* watcher = new QDBusPendingCallWatcher(QDBusConnection::systemBus().asyncCall(message));
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher, [watcher, done] {
        watcher->deleteLater();
        done();
    });
}

void BareQt::advertise(const Done& done)
{
    if (!m_advertisement) {
        m_advertisement = new BareAdvertisement(&m_advertised);
        exportObject(QStringLiteral("/com/example/advertisement"), &m_advertised);
    }
    call("LEAdvertisingManager1", "RegisterAdvertisement", done);
}

void BareQt::burst(unsigned changes, const Done& done)
{
    const auto left = std::make_shared<unsigned>(2 * changes);
    const auto countDown = [left, done] {
        if (--*left == 0) {
            done();
        }
    };
    for (unsigned i = 0; i < changes; ++i) {
        m_advertisement->localName = QStringLiteral("Bench ") + QString::number(i);
        call("LEAdvertisingManager1", "UnregisterAdvertisement", countDown);
        call("LEAdvertisingManager1", "RegisterAdvertisement", countDown);
    }
}

} // namespace

int main(int argc, char** argv)
{
    return serve(argc, argv, QStringLiteral("org.example.Bench.Qt"), [] { return new BareQt; });
}
