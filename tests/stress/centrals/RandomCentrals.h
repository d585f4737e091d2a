#pragma once

#include "Figures.h"
#include "RawBusClient.h"
#include "Simulator.h"

#include <plim/peripheral.h>

#include <QCoreApplication>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QMap>
#include <QPointer>
#include <QVector>
#include <QtTest>

#include <random>

/** Centrals and adapters to which random things happen, all chosen by one seed. */
class RandomCentrals
{
public:
    explicit RandomCentrals(unsigned seed) : m_random(seed)
    {
        for (int i = 0; i < 4; ++i) {
            const QDBusMessage answer =
                Simulator::control(QStringLiteral("AddPhone"), {adapters.at(i % 2), addressOf(i)});
            m_phones << answer.arguments().constFirst().value<QDBusObjectPath>().path();
        }
    }

    void run()
    {
        ++m_depth;
        switch (below(10)) {
        case 0:
        case 1:
            make();
            break;
        case 2:
            end();
            break;
        case 3:
        case 4:
        case 5:
            order();
            break;
        case 6:
            forge();
            break;
        case 7:
            askFor();
            break;
        default:
            QCoreApplication::processEvents();
        }
        --m_depth;
    }

    /** What is wrong after everything has arrived; empty if nothing is. */
    QString discrepancy()
    {
        m_depth += maximumDepth; // nothing more is to happen meanwhile
        m_daemon.appear();
        tellPhones(QStringLiteral("Connect"));
        QString wrong = differenceAtLast(int(m_phones.size()));
        m_daemon.restart(); // after which phones have to connect again
        wrong += differenceAtLast(0);
        tellPhones(QStringLiteral("Connect"));
        for (int phone = 0; phone < m_phones.size(); ++phone) {
            rename(phone);
        }
        wrong += differenceAtLast(int(m_phones.size()));
        m_depth -= maximumDepth;
        return wrong;
    }

    void clear()
    {
        qDeleteAll(alive(m_centrals));
        qDeleteAll(alive(m_adapters));
        m_centrals.clear();
        m_adapters.clear();
        m_choices.clear();
        QCoreApplication::processEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        m_daemon.clearCalls();
    }

private:
    static constexpr int maximumDepth = 3;
    static constexpr int maximumObjects = 12;
    const QStringList adapters{QStringLiteral("hci0"), QStringLiteral("hci1")};

    static QString addressOf(int number) { return QStringLiteral("00:AA:01:01:00:1%1").arg(number); }
    template <typename Object>
    static QVector<Object*> alive(const QVector<QPointer<Object>>& all)
    {
        QVector<Object*> found;
        for (const QPointer<Object>& each : all) {
            if (each) {
                found << each.data();
            }
        }
        return found;
    }
    int below(int limit) { return int(m_random() % unsigned(limit)); }
    QString device(int phone) const
    {
        return QString(m_phones.at(phone))
            .replace(QLatin1String("/org/plim/BluezSimulator"), QLatin1String("/org/bluez"));
    }
    QString anyChoice()
    {
        static const QStringList choices{QString(), QStringLiteral("hci1"),
                                         QStringLiteral("00:aa:01:00:00:01"), QStringLiteral("hci7")};
        return choices.at(below(int(choices.size())));
    }
    void interfere()
    {
        if (m_depth < maximumDepth && below(3) == 0) {
            run();
        }
    }
    template <typename Object, typename Signal>
    void interfereAt(Object* object, Signal signal)
    {
        QObject::connect(object, signal, object, [this] { interfere(); });
    }

    void make()
    {
        m_centrals.removeAll(nullptr);
        m_adapters.removeAll(nullptr);
        if (m_centrals.size() + m_adapters.size() >= maximumObjects) {
            return;
        }
        if (below(2) == 0) {
            const QString choice = anyChoice();
            auto* centrals = new plim::Centrals(choice);
            m_centrals << centrals;
            m_choices[centrals] = choice;
            interfereAt(centrals, &plim::Centrals::centralConnected);
            interfereAt(centrals, &plim::Centrals::centralChanged);
            interfereAt(centrals, &plim::Centrals::centralDisconnected);
        } else {
            const QString choice = anyChoice();
            auto* adapter = new plim::Adapter(choice);
            m_adapters << adapter;
            m_choices[adapter] = choice;
            interfereAt(adapter, &plim::Adapter::pathChanged);
            interfereAt(adapter, &plim::Adapter::aliasChanged);
            interfereAt(adapter, &plim::Adapter::poweredChanged);
        }
    }
    void end()
    {
        QVector<QObject*> all;
        for (QObject* object : alive(m_centrals)) {
            all << object;
        }
        for (QObject* object : alive(m_adapters)) {
            all << object;
        }
        if (all.isEmpty()) {
            return;
        }
        QObject* object = all.at(below(int(all.size())));
        if (below(4) == 0) {
            object->deleteLater();
        } else {
            delete object;
        }
    }

    QString differenceAtLast(int connected)
    {
        QString wrong;
        const auto isRight = [&] {
            wrong = difference(connected);
            return wrong.isEmpty();
        };
        static_cast<void>(QTest::qWaitFor(isRight, 20000 * slowness())); // the last word is what is wrong
        return wrong;
    }
    /** Which may be refused: the daemon is away. */
    void tell(int phone, const QString& what, const QVariantList& arguments = {})
    {
        QDBusMessage call =
            QDBusMessage::createMethodCall(QStringLiteral("org.plim.BluezSimulator"), m_phones.at(phone),
                                           QStringLiteral("org.plim.BluezSimulator1.Phone"), what);
        call.setArguments(arguments);
        QDBusConnection::systemBus().call(call);
    }
    void tellPhones(const QString& what)
    {
        for (int phone = 0; phone < m_phones.size(); ++phone) {
            tell(phone, what);
        }
    }
    void rename(int phone)
    {
        Simulator::control(QStringLiteral("SetProperty"),
                           {QVariant::fromValue(QDBusObjectPath(device(phone))),
                            QStringLiteral("org.bluez.Device1"), QStringLiteral("Name"),
                            QVariant::fromValue(QDBusVariant(QString::number(below(100))))});
    }

    /** Something that the daemon and its phones do. */
    void order()
    {
        const int phone = below(int(m_phones.size()));
        switch (below(8)) {
        case 0:
            below(2) == 0 ? m_daemon.restart() : m_daemon.vanish();
            break;
        case 1:
            m_daemon.appear();
            break;
        case 2:
            Simulator::control(QStringLiteral("RemoveAdapter"), {adapters.at(1)});
            Simulator::control(QStringLiteral("AddAdapter"), {adapters.at(1)});
            break;
        case 3:
            rename(phone);
            break;
        case 4:
            tell(phone, QStringLiteral("DisconnectFor"), {QStringLiteral("Remote")});
            break;
        case 5:
            tell(phone, below(2) == 0 ? QStringLiteral("Forget") : QStringLiteral("Disconnect"));
            break;
        default:
            tell(phone, QStringLiteral("Connect"));
        }
    }

    /** The daemon's signals, sent by somebody else. */
    void forge()
    {
        const QString path = device(below(int(m_phones.size())));
        const QString interface = QStringLiteral("org.bluez.Device1");
        const QString properties = QStringLiteral("org.freedesktop.DBus.Properties");
        const QString manager = QStringLiteral("org.freedesktop.DBus.ObjectManager");
        switch (below(4)) {
        case 0:
            m_stranger.emitSignal(path, properties, QStringLiteral("PropertiesChanged"),
                                  QStringLiteral("sa{sv}as"),
                                  {interface, QStringLiteral("2"), QStringLiteral("Connected"),
                                   QStringLiteral("b"), QStringLiteral("false"), QStringLiteral("Name"),
                                   QStringLiteral("s"), QStringLiteral("forged"), QStringLiteral("0")});
            break;
        case 1:
            m_stranger.emitSignal(
                QStringLiteral("/"), manager, QStringLiteral("InterfacesAdded"), QStringLiteral("oa{sa{sv}}"),
                {QStringLiteral("/forged"), QStringLiteral("1"), interface, QStringLiteral("1"),
                 QStringLiteral("Connected"), QStringLiteral("b"), QStringLiteral("true")});
            break;
        case 2:
            m_stranger.emitSignal(QStringLiteral("/"), manager, QStringLiteral("InterfacesRemoved"),
                                  QStringLiteral("oas"), {path, QStringLiteral("1"), interface});
            break;
        default:
            m_stranger.emitSignal(path, interface, QStringLiteral("Disconnected"), QStringLiteral("ss"),
                                  {QStringLiteral("org.bluez.Reason.Timeout"), QString()});
        }
    }

    /** A call of the library's. */
    void askFor()
    {
        const QVector<plim::Centrals*> centrals = alive(m_centrals);
        const QVector<plim::Adapter*> all = alive(m_adapters);
        const auto ended = [this](const QDBusError&) { interfere(); };
        if (below(2) == 0 && !centrals.isEmpty()) {
            centrals.at(below(int(centrals.size())))
                ->disconnect(plim::Central(device(below(int(m_phones.size())))), ended);
        } else if (!all.isEmpty()) {
            plim::Adapter* adapter = all.at(below(int(all.size())));
            adapter->setAlias(QString::number(below(100)), ended);
            adapter->setPowered(below(2) == 0, ended);
        }
    }

    /** In what the objects differ from the daemon's own account. */
    QString difference(int shown) const
    {
        const QDBusMessage answer = QDBusConnection::systemBus().call(QDBusMessage::createMethodCall(
            QStringLiteral("org.bluez"), QStringLiteral("/"),
            QStringLiteral("org.freedesktop.DBus.ObjectManager"), QStringLiteral("GetManagedObjects")));
        const auto objects =
            qdbus_cast<QMap<QDBusObjectPath, QMap<QString, QVariantMap>>>(answer.arguments().value(0));
        QStringList connected;
        for (auto object = objects.cbegin(); object != objects.cend(); ++object) {
            if (object->value(QStringLiteral("org.bluez.Device1"))
                    .value(QStringLiteral("Connected"))
                    .toBool()) {
                connected << object.key().path();
            }
        }
        if (connected.size() != shown) {
            return QStringLiteral("the daemon shows %1 phones").arg(connected.size());
        }
        for (const plim::Centrals* centrals : alive(m_centrals)) {
            for (const plim::Central& central : centrals->connected()) {
                const QVariantMap phone =
                    objects.value(QDBusObjectPath(central.path())).value(QStringLiteral("org.bluez.Device1"));
                if (!connected.contains(central.path()) ||
                    phone.value(QStringLiteral("Name")).toString() != central.name()) {
                    return QStringLiteral("%1 is not connected, or has another name").arg(central.path());
                }
            }
        }
        for (const plim::Centrals* centrals : alive(m_centrals)) {
            const QString choice = m_choices.value(centrals);
            const QString part =
                choice.isEmpty() || choice == QLatin1String("hci7") ? choice : QStringLiteral("/hci1/");
            if (centrals->connected().size() != connected.filter(part).size()) {
                return QStringLiteral("%1 centrals at '%2'").arg(centrals->connected().size()).arg(choice);
            }
        }
        for (const plim::Adapter* adapter : alive(m_adapters)) {
            const QString alias =
                objects.value(QDBusObjectPath(adapter->isPresent() ? adapter->path() : QStringLiteral("/")))
                    .value(QStringLiteral("org.bluez.Adapter1"))
                    .value(QStringLiteral("Alias"))
                    .toString();
            if (adapter->alias() != alias ||
                adapter->isPresent() == (m_choices.value(adapter) == QLatin1String("hci7"))) {
                return QStringLiteral("the adapter %1").arg(m_choices.value(adapter));
            }
        }
        return {};
    }

    std::mt19937 m_random;
    Simulator m_daemon{
        {QStringLiteral("--adapter"), adapters.at(0), QStringLiteral("--adapter"), adapters.at(1)}};
    RawBusClient m_stranger;
    int m_depth = 0;
    QStringList m_phones; ///< the paths of the objects that control them
    QVector<QPointer<plim::Centrals>> m_centrals;
    QVector<QPointer<plim::Adapter>> m_adapters;
    QMap<const QObject*, QString> m_choices;
};
