// Reads, writes, pushed values, callbacks and notification in any order, on characteristics that page through
// controls, compared with a model after every step. The input is a program of such steps. Needs a message bus
// of its own, since a characteristic follows its control only when it could be exported.

#include "Finding.h"
#include "GattApplication.h"
#include "GattCharacteristic.h"
#include "GattModel.h"
#include "GattService.h"
#include "Literals.h"
#include "LogCapture.h"

#include <QCoreApplication>
#include <QDBusConnection>

#include <fuzzer/FuzzedDataProvider.h>

#include <array>
#include <limits>
#include <memory>
#include <utility>

namespace {

constexpr int maximumSteps = 100;
constexpr int intMax = std::numeric_limits<int>::max();
constexpr int intMin = std::numeric_limits<int>::min();

struct Fixture
{
    Fixture()
    {
        if (!QDBusConnection::systemBus().isConnected()) {
            std::fputs("fuzz-paging: no message bus; run it through scripts/private-bus\n", stderr);
            std::exit(2);
        }
    }

    int argc = 0;
    QCoreApplication application{argc, nullptr};
    LogCapture log{log4cplus::WARN_LOG_LEVEL};
    GattApplication tree{nullptr, "/fuzz"_qs, "org.example.Fuzz"_qs};
};

/** Bytes that show their position, or bytes as they come. */
QByteArray bytes(FuzzedDataProvider& input)
{
    if (input.ConsumeBool()) {
        const std::string raw = input.ConsumeRandomLengthString(40);
        return QByteArray(raw.data(), int(raw.size()));
    }
    QByteArray numbered(input.ConsumeIntegralInRange(0, 1700), '\0');
    const int first = input.ConsumeIntegral<unsigned char>();
    for (int i = 0; i < numbered.size(); ++i) {
        numbered[i] = char(first + i + i / 256);
    }
    return numbered;
}

/** What a peer might write into a control: most often a page, or the end of paging. */
QByteArray pageText(FuzzedDataProvider& input)
{
    // The large ones begin at bytes whose number overflows an int, or comes round to 0.
    static const std::array<QByteArray, 15> texts{
        "",    "1",   "2",       "3",       "-1",         "00",          " 0",        "0\n",
        "abc", "0x1", "4194304", "8388608", "2147483647", "-2147483648", "2147483648"};
    switch (input.ConsumeIntegralInRange(0, 3)) {
    case 0:
    case 1:
        return "0";
    case 2:
        return input.PickValueInArray(texts);
    default:
        return bytes(input);
    }
}

/** An offset in one of the forms in which it may arrive. */
QVariantMap options(FuzzedDataProvider& input)
{
    static const std::array<int, 14> offsets{0,   1,    3,  10,   511,  512,    513,
                                             700, 1024, -1, -512, -513, intMax, intMin};
    const QString key = "offset"_qs;
    switch (input.ConsumeIntegralInRange(0, 7)) {
    case 1:
        return {{key, quint16(input.ConsumeIntegral<quint16>())}};
    case 2:
        return {{key, input.ConsumeIntegral<int>()}};
    case 3:
        return {{key, input.ConsumeIntegral<qulonglong>()}, {"mtu"_qs, 23}};
    case 4:
        return {{key, QString::fromStdString(input.ConsumeRandomLengthString(12))}};
    case 5:
        return {{key, input.ConsumeBool() ? QVariant(input.ConsumeBool()) : QVariant(QStringList{"1"_qs})}};
    case 6:
        return {{key, input.PickValueInArray(offsets)}};
    default:
        return {};
    }
}

/** A characteristic, and what it should be. */
struct Pair
{
    Pair(GattService& service, const QString& name, Pair* control, GattModel::Trace& expected,
         QStringList& events)
        : model(name, control ? &control->model : nullptr, expected),
          real(
              service.createCharacteristic(name, GattCharacteristic::Read, control ? control->real : nullptr))
    {
        // Before anything is controlled by it, so that a write is recorded before what it releases.
        QObject::connect(real, &GattCharacteristic::valueChanged, real,
                         [name, &events] { events << "written "_qs + name; });
        QObject::connect(real, &GattCharacteristic::PropertiesChanged, real,
                         [name, &events](const QString&, const QVariantMap& changed) {
                             const QByteArray value = changed["Value"_qs].toByteArray();
                             events << "notified %1 %2"_qs.arg(name, QString::fromLatin1(value.toHex()));
                         });
    }

    GattModel model;
    GattCharacteristic* real;
};

/** One run of the program that the input stands for. */
class Run
{
public:
    explicit Run(Fixture& fixture) : m_log(fixture.log), m_service(fixture.tree.createService("5e"_qs, true))
    {
        m_log.clear();
    }

    void step(FuzzedDataProvider& input);
    void compare();

private:
    Pair& any(FuzzedDataProvider& input);
    void read(Pair& pair, FuzzedDataProvider& input);
    void write(Pair& pair, const QByteArray& value, const QVariantMap& with);
    void push(Pair& pair, const QByteArray& value);
    void setCallback(Pair& pair, FuzzedDataProvider& input);
    void removeCallback(Pair& pair);
    void setNotifying(Pair& pair, bool notifying);
    void deleteControl();

    LogCapture& m_log;
    std::unique_ptr<GattService> m_service;
    GattModel::Trace m_expected;
    QStringList m_events;
    QString m_step;
    Pair m_control{*m_service, "c0"_qs, nullptr, m_expected, m_events};
    Pair m_paged{*m_service, "d0"_qs, &m_control, m_expected, m_events};
    Pair m_sibling{*m_service, "d1"_qs, &m_control, m_expected, m_events};
    /** A characteristic that is controlled may control another one. */
    Pair m_chained{*m_service, "d2"_qs, &m_paged, m_expected, m_events};
    Pair m_plain{*m_service, "e0"_qs, nullptr, m_expected, m_events};
    const std::array<Pair*, 5> m_pairs{&m_paged, &m_control, &m_sibling, &m_chained, &m_plain};
};

Pair& Run::any(FuzzedDataProvider& input)
{
    Pair* pair = input.PickValueInArray(m_pairs);
    return pair->real ? *pair : m_paged;
}

void Run::read(Pair& pair, FuzzedDataProvider& input)
{
    const QVariantMap with = options(input);
    const QByteArray answer = pair.real->ReadValue(with);
    require(answer == pair.model.read(with), [&] { return "another answer from "_qs + pair.model.name; });
    m_step = "ReadValue"_qs;
}

void Run::write(Pair& pair, const QByteArray& value, const QVariantMap& with)
{
    pair.real->WriteValue(value, with);
    pair.model.write(value, with);
    m_step = "WriteValue"_qs;
}

void Run::push(Pair& pair, const QByteArray& value)
{
    pair.real->setValue(value);
    pair.model.push(value);
    m_step = "setValue"_qs;
}

void Run::setCallback(Pair& pair, FuzzedDataProvider& input)
{
    GattModel::Callback callback;
    if (input.ConsumeBool()) {
        callback.pushed = bytes(input);
    }
    callback.answer = bytes(input);
    pair.model.callback = callback;
    pair.real->setReadCallback([this, &pair, callback] {
        m_events << "callback of "_qs + pair.model.name;
        if (callback.pushed) {
            pair.real->setValue(*callback.pushed);
        }
        return callback.answer;
    });
    m_step = "setReadCallback"_qs;
}

void Run::removeCallback(Pair& pair)
{
    pair.real->setReadCallback({});
    pair.model.callback.reset();
    m_step = "setReadCallback, empty"_qs;
}

void Run::setNotifying(Pair& pair, bool notifying)
{
    notifying ? pair.real->StartNotify() : pair.real->StopNotify();
    pair.model.notifying = notifying;
    m_step = notifying ? "StartNotify"_qs : "StopNotify"_qs;
}

void Run::deleteControl()
{
    delete std::exchange(m_control.real, nullptr);
    for (GattModel* each : std::exchange(m_control.model.controlled, {})) {
        each->control = nullptr;
    }
    m_step = "delete control"_qs;
}

void Run::step(FuzzedDataProvider& input)
{
    Pair& pair = any(input);
    switch (input.ConsumeIntegralInRange(0, 11)) {
    case 0:
    case 1:
        return read(pair, input);
    case 2: {
        const QByteArray value = bytes(input);
        return write(pair, value, options(input));
    }
    case 3:
    case 4:
        return push(pair, bytes(input));
    case 5:
        return setCallback(pair, input);
    case 6:
        return removeCallback(pair);
    case 7:
        return setNotifying(pair, input.ConsumeBool());
    case 8:
        return deleteControl();
    default:
        return write(m_control.real ? m_control : m_paged, pageText(input), {});
    }
}

void Run::compare()
{
    for (const Pair* pair : m_pairs) {
        const GattModel& model = pair->model;
        const auto after = [&](const char* what) {
            return [&model, this, what] {
                return "after %1: another %2 of %3"_qs.arg(m_step, QString::fromLatin1(what), model.name);
            };
        };
        if (pair->real) {
            require(pair->real->value() == model.value, after("value"));
            require(pair->real->cachedValue() == model.cached, after("cached value"));
            require(pair->real->notifying() == model.notifying, after("state of notification"));
        }
    }
    require(m_events == m_expected.events, [&] {
        return "after %1: events\n%2\nexpected\n%3"_qs.arg(m_step, m_events.join('\n'),
                                                           m_expected.events.join('\n'));
    });
    QStringList lines;
    for (const LogLine& line : m_log.lines()) {
        lines << (line.level == log4cplus::WARN_LOG_LEVEL ? "WARN "_qs : "ERROR "_qs) + line.text;
    }
    require(lines == m_expected.lines, [&] {
        return "after %1: log lines\n%2\nexpected\n%3"_qs.arg(m_step, lines.join('\n'),
                                                              m_expected.lines.join('\n'));
    });
    m_events.clear();
    m_log.clear();
    m_expected = {};
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    static Fixture& fixture = *new Fixture;
    FuzzedDataProvider input(data, size);
    Run run(fixture);
    for (int steps = 0; input.remaining_bytes() > 0 && steps < maximumSteps; ++steps) {
        run.step(input);
        run.compare();
    }
    return 0;
}
