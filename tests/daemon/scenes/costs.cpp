// What notifications and writes cost the daemon, the bus and the program, over the bus and through sockets.

#include "Expect.h"
#include "Measurement.h"
#include "MonotonicTime.h"
#include "ProductStage.h"
#include "SceneTree.h"
#include "scenes.h"

#include <QtEndian>

namespace {

constexpr int rounds = 5;
constexpr int burst = 200;
constexpr int spaced = 100;
constexpr int spacingMs = 5;
constexpr int numberSize = 4;

/** A way between daemon and program: a characteristic of the tree. */
struct Way
{
    QString name;
    QString uuid;
};
const Way ways[] = {{"bus", SceneTree::uuid(0x9001)}, {"socket", SceneTree::uuid(0x9002)}};

/** What one kind of operation has cost, for each operation. */
struct Costs
{
    Samples daemon;  // microseconds
    Samples bus;     // microseconds
    Samples program; // microseconds
    Samples rate;    // per second
    Samples latency; // microseconds
};

class CostStage : public ProductStage
{
public:
    CostStage();
    void measureRound(int round);
    void print() const;

private:
    /** Runs the series, and adds what each of its operations has cost.
     * @param series  returns the time of the last operation, in nanoseconds */
    void measure(Costs& costs, int operations, const std::function<qint64()>& series);
    Costs& costsOf(const QString& operation, int bytes, const Way& way);
    /** The values arrive, each once, in order, of the right size.
     * @return when the last one arrived */
    qint64 notifyAll(const Way& way, int bytes, int count, int intervalMs);
    void addLatencies(Samples& latencies, int count) const;
    /** The phone writes, and each write is answered. @return when the program has got the last one */
    qint64 request(const Way& way, int bytes);
    /** The phone writes without answers. @return when the program has got the last one */
    qint64 command(const Way& way, int bytes);
    qint64 awaitWrites(const Way& way);
    /** What the program has counted: writes, wrong ones, the time of the last. */
    QStringList writes(const Way& way);

    ProcessorMeter m_daemon{processOnBus("org.bluez")};
    ProcessorMeter m_bus{processOnBus("org.freedesktop.DBus")};
    ProcessorMeter m_program{peripheral.process()};
    QList<QPair<QString, Costs>> m_costs;
    QStringList m_wrong;
    int m_series = 0;
};

/** The median and what only one of a hundred exceeds. */
QString latencyText(const Samples& latencies)
{
    return latencies.count() == 0 ? QString()
                                  : QString("%1, 99 %: %2")
                                        .arg(latencies.quantile(0.5), 0, 'f', 0)
                                        .arg(latencies.quantile(0.99), 0, 'f', 0);
}

QStringList commands()
{
    QStringList commands{"plim-service service " + SceneTree::uuid(0x9000) + " primary"};
    for (const Way& way : ways) {
        commands << "plim-characteristic " + way.name + " service " + way.uuid +
                        " write,write-without-response,notify";
    }
    return commands << "sockets socket both-ways";
}

QList<QByteArray> numberedValues(int bytes)
{
    QList<QByteArray> values;
    for (int number = 0; number < burst; ++number) {
        QByteArray value(bytes, 0);
        qToBigEndian(quint32(number), value.data());
        values << value;
    }
    return values;
}

CostStage::CostStage() : ProductStage(commands(), "[GATT]\nChannels = 1\n", Bluetooth::Unrecorded)
{
    peripheral.tell("log ERROR");
    central.connectDevice();
    for (const Way& way : ways) {
        Expect::equal(central.subscribe(central.handle(way.uuid), 1).error, 0, "the phone subscribes");
        Expect::eventually([&] { return peripheral.notifying(way.name) == QStringList{"1"}; },
                           "which the program hears, " + way.name);
        // With the first write the daemon asks for a socket.
        peripheral.tell("count-writes " + way.name);
        Expect::equal(central.write(central.handle(way.uuid), "first").error, 0, "it writes");
        Expect::eventually([&] { return writes(way).value(0) == "1"; }, "which arrives, " + way.name);
    }
}

void CostStage::measure(Costs& costs, int operations, const std::function<qint64()>& series)
{
    m_daemon.lap();
    m_bus.lap();
    m_program.lap();
    const qint64 start = monotonicTime();
    const qint64 end = series();
    costs.daemon.add(m_daemon.lap() / operations);
    costs.bus.add(m_bus.lap() / operations);
    costs.program.add(m_program.lap() / operations);
    costs.rate.add(operations * 1e9 / double(end - start));
    ++m_series;
}

Costs& CostStage::costsOf(const QString& operation, int bytes, const Way& way)
{
    const QString name = QString("%1, %2 bytes, %3").arg(operation).arg(bytes).arg(way.name);
    for (auto& costs : m_costs) {
        if (costs.first == name) {
            return costs.second;
        }
    }
    m_costs.append({name, Costs()});
    return m_costs.last().second;
}

qint64 CostStage::notifyAll(const Way& way, int bytes, int count, int intervalMs)
{
    const auto before = central.notifications().size();
    const quint16 handle = central.handle(way.uuid);
    peripheral.begin(
        QString("notify-count %1 %2 %3 %4").arg(way.name).arg(count).arg(bytes - numberSize).arg(intervalMs));
    central.awaitNotifications(before + count);
    const QList<AttClient::Notification> got = central.notifications().mid(before);
    bool right = got.size() == count;
    for (int i = 0; right && i < count; ++i) {
        const AttClient::Notification& one = got.at(i);
        right = one.handle == handle && one.value.size() == bytes &&
                qFromBigEndian<quint32>(one.value.constData()) == quint32(i);
    }
    if (!right) {
        m_wrong << QString("%1 notifications of %2 bytes, %3: %4 arrived, or in another order")
                       .arg(count)
                       .arg(bytes)
                       .arg(way.name)
                       .arg(got.size());
    }
    return got.isEmpty() ? monotonicTime() : got.last().time;
}

void CostStage::addLatencies(Samples& latencies, int count) const
{
    const QList<AttClient::Notification> all = central.notifications();
    for (const AttClient::Notification& one : all.mid(all.size() - count)) {
        latencies.add(double(one.time - qFromBigEndian<qint64>(one.value.constData() + numberSize)) / 1000);
    }
}

QStringList CostStage::writes(const Way& way)
{
    peripheral.tell("counted-writes " + way.name);
    return peripheral.told("writes " + way.name).constLast().split(' ');
}

qint64 CostStage::awaitWrites(const Way& way)
{
    // Writes through a socket are acknowledged before they arrive.
    Expect::waitFor([&] { return writes(way).value(0).toInt() >= burst; }, 10);
    return writes(way).value(2).toLongLong();
}

qint64 CostStage::request(const Way& way, int bytes)
{
    const int accepted = central.writeEach(central.handle(way.uuid), numberedValues(bytes));
    if (accepted != burst) {
        m_wrong << QString("%1 of %2 writes were accepted, %3").arg(accepted).arg(burst).arg(way.name);
    }
    return awaitWrites(way);
}

qint64 CostStage::command(const Way& way, int bytes)
{
    const quint16 handle = central.handle(way.uuid);
    for (const QByteArray& value : numberedValues(bytes)) {
        central.command(handle, value);
    }
    return awaitWrites(way);
}

void CostStage::measureRound(int round)
{
    for (const int bytes : {20, 244}) {
        for (int i = 0; i < 2; ++i) {
            const Way& way = ways[(i + round) % 2];
            Costs& fast = costsOf("notifications in a row", bytes, way);
            measure(fast, burst, [&] { return notifyAll(way, bytes, burst, 0); });
            Costs& single = costsOf("single notifications", bytes, way);
            measure(single, spaced, [&] { return notifyAll(way, bytes, spaced, spacingMs); });
            addLatencies(single.latency, spaced);
            for (const bool answered : {true, false}) {
                peripheral.tell("count-writes " + way.name);
                measure(costsOf(answered ? "Write Requests" : "Write Commands", bytes, way), burst,
                        [&] { return answered ? request(way, bytes) : command(way, bytes); });
                const QStringList counted = writes(way).mid(0, 2);
                if (counted != QStringList{QString::number(burst), "0"}) {
                    m_wrong << QString("%1 of %2 bytes, %3: %4 arrived, %5 out of order")
                                   .arg(answered ? "Write Requests" : "Write Commands")
                                   .arg(bytes)
                                   .arg(way.name, counted.value(0), counted.value(1));
                }
            }
        }
    }
}

void CostStage::print() const
{
    Expect::that(m_wrong.isEmpty(), QString("in each of %1 series, all arrive once, in order").arg(m_series),
                 QString("not in %1: %2").arg(m_wrong.size()).arg(m_wrong.join(" | ")));
    Expect::note("| Operation | bluetoothd, µs | dbus-daemon, µs | program, µs | per second | latency, µs |");
    Expect::note("|---|---|---|---|---|---|");
    for (const auto& named : m_costs) {
        const Costs& costs = named.second;
        const QStringList cells{named.first,           costs.daemon.text(1), costs.bus.text(1),
                                costs.program.text(1), costs.rate.text(0),   latencyText(costs.latency)};
        Expect::note("| " + cells.join(" | ") + " |");
    }
}

} // namespace

void Scenes::costs()
{
    CostStage stage;
    for (int round = 0; round < rounds; ++round) {
        stage.measureRound(round);
    }
    stage.print();
}
