// Container types read from messages of any content and written again: the echo is compared, byte by byte,
// with what a model makes of the same value. The input tells how to build the message: well formed with
// values of any type in its variants, with another signature, with a body of raw bytes, or with some bytes
// altered.

#include "Echo.h"
#include "EchoModel.h"
#include "Finding.h"
#include "Literals.h"
#include "RandomValue.h"
#include "RawPeer.h"

#include <QCoreApplication>
#include <QDBusMetaType>

#include <fuzzer/FuzzedDataProvider.h>

#include <array>

namespace {

struct Slot
{
    const char* name;
    const char* signature;
};

constexpr std::array<Slot, 5> containerSlots{{{"AdvertisingData", "a{yv}"},
                                              {"ManufacturerData", "a{qv}"},
                                              {"Properties", "a{oa{sv}}"},
                                              {"Interfaces", "a{sa{sv}}"},
                                              {"Objects", "a{oa{sa{sv}}}"}}};

constexpr Slot anythingSlot{"Anything", "v"};

struct Fixture
{
    Fixture()
    {
        registerDBusTypes();
        qDBusRegisterMetaType<DBusAdvData>();
        qDBusRegisterMetaType<DBusManufacturerData>();
        qDBusRegisterMetaType<DBusPropertyMap>();
        // Qt comments on what it drops.
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    }

    int argc = 0;
    QCoreApplication application{argc, nullptr};
    Echo echo;
    RawPeer peer{echo};
};

QByteArray body(const WireValue& value, bool bigEndian = false)
{
    WireWriter writer(bigEndian);
    writer.write(value);
    return writer.data;
}

QString described(const WireValue& value)
{
    return QString::fromStdString(value.signature) + ' ' + QString::fromLatin1(body(value).toHex());
}

QByteArray callOf(const Slot& slot, const WireValue& argument, bool bigEndian = false)
{
    announce([&] { return "%1: %2"_qs.arg(slot.name, described(argument)); });
    return RawPeer::call(slot.name, argument.signature, body(argument, bigEndian), bigEndian);
}

/** A message as it should be: the echo is known. */
void echoContainer(RawPeer& peer, FuzzedDataProvider& input, const Slot& slot)
{
    const bool bigEndian = input.ConsumeBool();
    const WireValue argument = RandomValue(input, false).value(slot.signature);
    const RawAnswer answer = peer.exchange(callOf(slot, argument, bigEndian));
    const WireValue expected = EchoModel::echo(argument);
    require(answer.kind == RawAnswer::Return && answer.signature == slot.signature &&
                answer.body == body(expected),
            [&] {
                return "%1\ncame back as %2 %3\nexpected %4"_qs.arg(
                    described(argument), QString::fromStdString(answer.signature),
                    QString::fromLatin1(answer.body.toHex()), described(expected));
            });
}

/** Any value of any type in a variant, even one that cannot be sent: there must be an answer. */
void echoAnything(RawPeer& peer, FuzzedDataProvider& input)
{
    const WireValue argument = RandomValue(input, true).value("v");
    const RawAnswer answer = peer.exchange(callOf(anythingSlot, argument));
    require(answer.kind == RawAnswer::Return, [&] { return "no answer to "_qs + described(argument); });
}

/** An argument of another type: the slot must not be reached. */
void sendAnotherType(RawPeer& peer, FuzzedDataProvider& input, const Slot& slot)
{
    const std::string signature = RandomValue(input, true).signature();
    const bool isItsType = signature == slot.signature;
    const WireValue argument = RandomValue(input, !isItsType).value(signature);
    const RawAnswer answer = peer.exchange(callOf(slot, argument));
    const auto expected = isItsType ? RawAnswer::Return : RawAnswer::Error;
    require(answer.kind == expected, [&] { return "%1 took %2"_qs.arg(slot.name, described(argument)); });
}

/** The right signature, but anything behind it. */
void sendRawBody(RawPeer& peer, FuzzedDataProvider& input, const Slot& slot)
{
    const std::string raw = input.ConsumeRemainingBytesAsString();
    const QByteArray message =
        RawPeer::call(slot.name, slot.signature, QByteArray(raw.data(), int(raw.size())), false);
    if (RawPeer::isMessage(message)) {
        // What the slots give back as it came may hold a file descriptor that no message brought, or an empty
        // signature, and Qt sends no answer with those.
        const bool mayBeUnfit = raw.find_first_of("gh") != std::string::npos;
        const auto kind = peer.exchangeAnything(message).kind;
        require(kind == RawAnswer::Return || (kind == RawAnswer::Nothing && mayBeUnfit),
                [&] { return "%1 refused what libdbus took"_qs.arg(slot.name); });
    }
}

/** A message of which some bytes, in the header or the body, have been altered. */
void sendAlteredMessage(RawPeer& peer, FuzzedDataProvider& input, const Slot& slot)
{
    const int alterations = input.ConsumeIntegralInRange(1, 4);
    std::array<quint16, 4> positions{};
    std::array<char, 4> bytes{};
    for (int i = 0; i < alterations; ++i) {
        positions[std::size_t(i)] = input.ConsumeIntegral<quint16>();
        bytes[std::size_t(i)] = input.ConsumeIntegral<char>();
    }
    const WireValue argument = RandomValue(input, false).value(slot.signature);
    QByteArray message = callOf(slot, argument);
    for (int i = 0; i < alterations; ++i) {
        message[positions[std::size_t(i)] % message.size()] = bytes[std::size_t(i)];
    }
    if (RawPeer::isMessage(message)) {
        peer.exchangeAnything(message);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    static Fixture& fixture = *new Fixture;
    FuzzedDataProvider input(data, size);
    const Slot& slot =
        containerSlots[input.ConsumeIntegralInRange<std::size_t>(0, containerSlots.size() - 1)];
    switch (input.ConsumeIntegralInRange(0, 15)) {
    case 0:
        sendRawBody(fixture.peer, input, slot);
        break;
    case 1:
        sendAlteredMessage(fixture.peer, input, slot);
        break;
    case 2:
    case 3:
        sendAnotherType(fixture.peer, input, slot);
        break;
    case 4:
    case 5:
    case 6:
        echoAnything(fixture.peer, input);
        break;
    default:
        echoContainer(fixture.peer, input, slot);
    }
    return 0;
}
