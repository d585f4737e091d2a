// The commands for the classes of plim/peripheral.

#include "Interpreter.h"

#include <plim/peripheral.h>

#include <QDateTime>
#include <QTimeZone>
#include <QTimer>

#include <functional>

namespace {

plim::Access::Level levelOf(const QString& word)
{
    static const QMap<QString, plim::Access::Level> levels{
        {"", plim::Access::Open},
        {"encrypted", plim::Access::Encrypted},
        {"authenticated", plim::Access::Authenticated},
        {"secure", plim::Access::SecureConnections},
    };
    if (!levels.contains(word)) {
        throw "the level " + word;
    }
    return levels.value(word);
}

plim::Access accessOf(const QString& words)
{
    plim::Access access;
    for (const QString& word : words.split(',')) {
        const QString what = word.section(':', 0, 0);
        const plim::Access::Level level = levelOf(word.section(':', 1));
        if (what == "read") {
            access = access.read(level);
        } else if (what == "write") {
            access = access.write(level);
        } else if (what == "write-without-response") {
            access = access.writeWithoutResponse();
        } else if (what == "notify") {
            access = access.notify(level);
        } else if (what == "indicate") {
            access = access.indicate(level);
        } else {
            throw "the access " + word;
        }
    }
    return access;
}

plim::AttError errorOf(const QString& code)
{
    const int number = code.toInt(nullptr, 16);
    return number >= 0x80 && number <= 0x9f ? plim::AttError::application(number)
                                            : plim::AttError(plim::AttError::Code(number));
}

QString described(const plim::ReadRequest& request)
{
    return QString("read %1 %2").arg(request.central().path()).arg(request.offset());
}

QString described(const plim::WriteRequest& request)
{
    return QString("write %1 %2 %3")
        .arg(request.central().path())
        .arg(request.offset())
        .arg(QString::fromLatin1(request.value().toHex()));
}

QDateTime winterTime()
{
    return {QDate(2026, 11, 21), QTime(21, 15, 30, 500), QTimeZone(3600)};
}

void accept(const plim::ReadRequest& request, const QString& value)
{
    request.accept(QByteArray::fromHex(value.toLatin1()));
}

void accept(const plim::WriteRequest& request, const QString&)
{
    request.accept();
}

void notify(const plim::ReadRequest&) {}

void notify(const plim::WriteRequest& request)
{
    request.accept(plim::WriteRequest::Notify);
}

} // namespace

template <typename Request>
std::function<void(Request)> Interpreter::handler(const QStringList& words)
{
    const QString name = words.value(1);
    const QString what = words.value(2);
    const QString argument = words.value(3);
    if (!QStringList{"accept", "notify", "reject", "keep"}.contains(what)) {
        throw "the answer " + what;
    }
    const auto answer = [=](const Request& request) {
        if (what == "accept") {
            accept(request, argument);
        } else if (what == "notify") {
            notify(request);
        } else if (what == "reject") {
            request.reject(errorOf(argument));
        }
    };
    // The timer's copy of the request keeps it from being rejected; "keep" outlasts every wait of the daemon.
    const int milliseconds = what == "keep" ? 60000 : words.value(4).toInt();
    return [=](const Request& request) {
        say("request " + name + ' ' + described(request));
        if (milliseconds > 0) {
            QTimer::singleShot(milliseconds, this, [=] {
                say("answered " + name);
                answer(request);
            });
        } else {
            answer(request);
        }
    };
}

void Interpreter::plimService(const QStringList& words)
{
    const QString name = words.value(1);
    auto* object = plim::Service::create(find<GattApplication>("application"), words.value(2),
                                         words.value(3) == "primary", words.value(4));
    m_objects[name] = object;
    connect(object, &plim::Service::handleAssigned, this,
            [=](quint16 handle) { say("handle " + name + ' ' + QString::number(handle)); });
}

void Interpreter::plimCharacteristic(const QStringList& words)
{
    const QString name = words.value(1);
    auto* object = plim::Characteristic::create(find<GattService>(words.value(2)), words.value(3),
                                                accessOf(words.value(4)), words.value(5));
    keep(name, static_cast<GattCharacteristic*>(object));
    connect(object, &plim::Characteristic::confirmed, this, [=] { say("confirmed " + name); });
    connect(object, &plim::Characteristic::subscribed, this,
            [=](const plim::Central& central) { say("subscribed " + name + ' ' + central.path()); });
    connect(object, &plim::Characteristic::unsubscribed, this,
            [=](const plim::Central& central) { say("unsubscribed " + name + ' ' + central.path()); });
}

void Interpreter::plimDescriptor(const QStringList& words)
{
    keep(words.value(1),
         static_cast<GattDescriptor*>(plim::Descriptor::create(find<GattCharacteristic>(words.value(2)),
                                                               words.value(3), accessOf(words.value(4)))));
}

void Interpreter::reads(const QStringList& words)
{
    const auto answer = handler<plim::ReadRequest>(words);
    if (auto* descriptor = qobject_cast<plim::Descriptor*>(find<QObject>(words.value(1)))) {
        descriptor->setReadHandler(answer);
    } else {
        find<plim::Characteristic>(words.value(1))->setReadHandler(answer);
    }
}

void Interpreter::writes(const QStringList& words)
{
    const auto answer = handler<plim::WriteRequest>(words);
    if (auto* descriptor = qobject_cast<plim::Descriptor*>(find<QObject>(words.value(1)))) {
        descriptor->setWriteHandler(answer);
    } else {
        find<plim::Characteristic>(words.value(1))->setWriteHandler(answer);
    }
}

void Interpreter::track(const QStringList& words)
{
    find<plim::Characteristic>(words.value(1))->trackSubscribers();
}

void Interpreter::subscribers(const QStringList& words)
{
    QStringList line{"subscribers", words.value(1)};
    for (const plim::Central& central : find<plim::Characteristic>(words.value(1))->subscribers()) {
        line << central.path();
    }
    say(line.join(' '));
}

void Interpreter::handle(const QStringList& words)
{
    find<plim::Service>(words.value(1))->setHandle(words.value(2).toUShort());
}

void Interpreter::include(const QStringList& words)
{
    find<plim::Service>(words.value(1))->include(find<GattService>(words.value(2)));
}

void Interpreter::standardServices(const QStringList&)
{
    plim::DeviceInformation values;
    values.manufacturer = "Example";
    values.firmwareRevision = "1.2.3";
    values.systemId = QByteArray::fromHex("0102030405aabbcc");
    values.pnpId = plim::PnpId{plim::PnpId::Usb, 0x1234, 0x7856, 0x0213};
    plim::addDeviceInformation(m_application, values);
    plim::Characteristic* battery = plim::addBattery(m_application, 87);
    plim::describe(battery, "main battery");
    keep("battery", battery);
    keep("time", plim::addCurrentTime(m_application, winterTime));
}

void Interpreter::batteryLevel(const QStringList& words)
{
    plim::setBatteryLevel(find<plim::Characteristic>(words.value(1)), words.value(2).toInt());
}

void Interpreter::timeChanged(const QStringList& words)
{
    plim::notifyTime(find<plim::Characteristic>(words.value(1)), winterTime(), plim::TimeChange::TimeZone);
}
