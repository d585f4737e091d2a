#include "Interpreter.h"

#include "BleManager.h"

#include <QTimer>

#include <log4cplus/logger.h>

#include <cstdio>

namespace {

template <typename Option>
Option options(const QString& words)
{
    int bits = 0;
    const QStringList names{"read", "write", "notify"};
    for (const QString& word : words.split(',')) {
        if (word == "none") {
            continue;
        }
        if (!names.contains(word)) {
            throw "the flag " + word;
        }
        bits |= 1 << names.indexOf(word);
    }
    return Option(bits);
}

QByteArray bytes(const QStringList& words, int index)
{
    return QByteArray::fromHex(words.value(index).toLatin1());
}

} // namespace

void say(const QString& line)
{
    std::printf("%s\n", qPrintable(line));
    std::fflush(stdout);
}

const QMap<QString, Interpreter::Command> Interpreter::s_commands{
    {"application", &Interpreter::application},
    {"service", &Interpreter::service},
    {"characteristic", &Interpreter::characteristic},
    {"descriptor", &Interpreter::descriptor},
    {"value", &Interpreter::value},
    {"fill", &Interpreter::fill},
    {"callback", &Interpreter::callback},
    {"count", &Interpreter::count},
    {"delete", &Interpreter::destroy},
    {"remove", &Interpreter::remove},
    {"register", &Interpreter::registerAgain},
    {"problems", &Interpreter::problems},
    {"tree", &Interpreter::tree},
    {"advertisement", &Interpreter::advertisement},
    {"set", &Interpreter::set},
    {"add", &Interpreter::add},
    {"choose", &Interpreter::choose},
    {"centrals", &Interpreter::centrals},
    {"disconnect", &Interpreter::disconnectCentral},
    {"adapter", &Interpreter::adapter},
    {"switch", &Interpreter::switchAdapter},
    {"log", &Interpreter::log},
    {"plim-service", &Interpreter::plimService},
    {"plim-characteristic", &Interpreter::plimCharacteristic},
    {"plim-descriptor", &Interpreter::plimDescriptor},
    {"reads", &Interpreter::reads},
    {"writes", &Interpreter::writes},
    {"track", &Interpreter::track},
    {"sockets", &Interpreter::sockets},
    {"notify", &Interpreter::notifyOnce},
    {"notify-count", &Interpreter::notifyCount},
    {"count-writes", &Interpreter::countWrites},
    {"counted-writes", &Interpreter::countedWrites},
    {"subscribers", &Interpreter::subscribers},
    {"handle", &Interpreter::handle},
    {"include", &Interpreter::include},
    {"plim-advertisement", &Interpreter::plimAdvertisement},
    {"mode", &Interpreter::mode},
    {"set-own", &Interpreter::setOwn},
    {"beacon", &Interpreter::beacon},
    {"announce", &Interpreter::announce},
    {"keep", &Interpreter::keepOnAir},
    {"standard-services", &Interpreter::standardServices},
    {"battery-level", &Interpreter::batteryLevel},
    {"time-changed", &Interpreter::timeChanged},
    {"agent", &Interpreter::agent},
    {"window", &Interpreter::window},
    {"bonds", &Interpreter::bonds},
    {"forget", &Interpreter::forget},
    {"decide", &Interpreter::decide},
    {"stream", &Interpreter::stream},
    {"stream-send", &Interpreter::streamSend},
    {"stream-hold", &Interpreter::streamHold},
    {"stream-state", &Interpreter::streamState},
    {"nothing", &Interpreter::nothing},
};

Interpreter::Interpreter()
{
    BleManager::instance();
}

void Interpreter::execute(const QString& line)
{
    const QStringList words = line.split(' ', Qt::SkipEmptyParts);
    const Command command = s_commands.value(words.value(0));
    try {
        if (!command) {
            throw "the command " + words.value(0);
        }
        (this->*command)(words);
        say("done");
    } catch (const QString& reason) {
        say("wrong " + reason);
    }
}

void Interpreter::application(const QStringList& words)
{
    delete m_application;
    m_application = new GattApplication(this, words.value(1), words.value(2));
    m_objects["application"] = m_application;
}

void Interpreter::service(const QStringList& words)
{
    m_objects[words.value(1)] =
        find<GattApplication>("application")->createService(words.value(2), words.value(3) == "primary");
}

void Interpreter::characteristic(const QStringList& words)
{
    const QString name = words.value(1);
    auto* control = words.size() > 5 ? find<GattCharacteristic>(words.at(5)) : nullptr;
    GattCharacteristic* object =
        find<GattService>(words.value(2))
            ->createCharacteristic(words.value(3), options<GattCharacteristic::Option>(words.value(4)),
                                   control);
    keep(name, object);
}

void Interpreter::descriptor(const QStringList& words)
{
    const QString name = words.value(1);
    GattDescriptor* object =
        find<GattCharacteristic>(words.value(2))
            ->addDescriptor(words.value(3), options<GattDescriptor::Option>(words.value(4)));
    keep(name, object);
}

void Interpreter::keep(const QString& name, GattCharacteristic* characteristic)
{
    m_objects[name] = characteristic;
    connect(characteristic, &GattCharacteristic::valueChanged, this,
            [=] { say("written " + name + ' ' + characteristic->value().toHex()); });
    connect(characteristic, &GattCharacteristic::notifyStateChanged, this,
            [=](bool notifying) { say("notifying " + name + (notifying ? " 1" : " 0")); });
}

void Interpreter::keep(const QString& name, GattDescriptor* descriptor)
{
    m_objects[name] = descriptor;
    connect(descriptor, &GattDescriptor::valueChanged, this,
            [=] { say("written " + name + ' ' + descriptor->value().toHex()); });
}

void Interpreter::value(const QStringList& words)
{
    find<GattCharacteristic>(words.value(1))->setValue(bytes(words, 2));
}

void Interpreter::fill(const QStringList& words)
{
    QByteArray pattern;
    for (int i = 0; pattern.size() < words.value(2).toInt(); ++i) {
        pattern += QByteArray::number(i) + '.';
    }
    pattern.truncate(words.value(2).toInt());
    find<GattCharacteristic>(words.value(1))->setValue(pattern);
}

void Interpreter::callback(const QStringList& words)
{
    const QString name = words.value(1);
    const auto answer = [name, result = bytes(words, 2)] {
        say("asked " + name);
        return result;
    };
    QObject* object = find<QObject>(name);
    if (auto* described = qobject_cast<GattDescriptor*>(object)) {
        described->setReadCallback(answer);
    } else {
        find<GattCharacteristic>(name)->setReadCallback(answer);
    }
}

void Interpreter::count(const QStringList& words)
{
    const QString name = words.value(1);
    const quint32 last = words.value(2).toUInt();
    const int interval = words.value(3).toInt();
    if (interval > 0) {
        countOnce(name, 1, last, interval);
        return;
    }
    for (quint32 number = 1; number <= last; ++number) {
        find<GattCharacteristic>(name)->setValue(QByteArray::number(number, 16).rightJustified(8, '0'));
    }
}

void Interpreter::countOnce(const QString& name, quint32 number, quint32 last, int interval)
{
    find<GattCharacteristic>(name)->setValue(QByteArray::number(number, 16).rightJustified(8, '0'));
    if (number < last) {
        QTimer::singleShot(interval, this, [=] { countOnce(name, number + 1, last, interval); });
    }
}

void Interpreter::destroy(const QStringList& words)
{
    delete find<QObject>(words.value(1));
}

void Interpreter::remove(const QStringList& words)
{
    BleManager::instance()->remove(find<GapAdvertisement>(words.value(1)));
}

void Interpreter::registerAgain(const QStringList& words)
{
    BleManager::instance()->registerApp(find<GattApplication>(words.value(1)));
}

void Interpreter::problems(const QStringList& words)
{
    QObject* object = find<QObject>(words.value(1));
    const auto* application = qobject_cast<const GattApplication*>(object);
    const int limit = words.value(2).toInt();
    const BleFindings findings = application ? application->problems()
                                             : find<GapAdvertisement>(words.value(1))->problems(limit, limit);
    for (const BleFinding& finding : findings) {
        say("problem " + finding.text());
    }
}

void Interpreter::tree(const QStringList&)
{
    for (const GattService* service : find<GattApplication>("application")->services()) {
        say("tree service " + service->dbusPath() + ' ' + service->uUID() +
            (service->primary() ? " primary" : " secondary"));
        for (const GattCharacteristic* characteristic : service->characteristics()) {
            say("tree characteristic " + characteristic->dbusPath() + ' ' + characteristic->uUID() + ' ' +
                characteristic->flags().join(',') + ' ' + service->uUID());
            for (const GattDescriptor* descriptor : characteristic->descriptors()) {
                say("tree descriptor " + descriptor->dbusPath() + ' ' + descriptor->uuid() + ' ' +
                    descriptor->flags().join(',') + ' ' + characteristic->uUID());
            }
        }
    }
}

void Interpreter::advertisement(const QStringList& words)
{
    auto* object = new GapAdvertisement(this, words.value(2),
                                        words.value(3) == "all" ? GapAdvertisement::AllProperties
                                                                : GapAdvertisement::SetProperties);
    m_objects[words.value(1)] = object;
}

void Interpreter::set(const QStringList& words)
{
    setAdvertisementProperty(*find<GapAdvertisement>(words.value(1)), words.value(2), words.mid(3));
}

void Interpreter::add(const QStringList& words)
{
    QObject* object = find<QObject>(words.value(1));
    if (auto* application = qobject_cast<GattApplication*>(object)) {
        BleManager::instance()->add(application);
    } else {
        BleManager::instance()->add(find<GapAdvertisement>(words.value(1)));
    }
}

void Interpreter::log(const QStringList& words)
{
    log4cplus::Logger::getRoot().setLogLevel(
        log4cplus::getLogLevelManager().fromString(words.value(1).toStdString()));
}
