#include "RawBusClient.h"

#include <QDBusConnection>
#include <QEventLoop>
#include <QJsonDocument>
#include <QTimer>
#include <QUrl>

namespace {

constexpr int patienceMs = 50000;

QString peerInterface()
{
    return QStringLiteral("org.freedesktop.DBus.Peer");
}

QString propertiesInterface()
{
    return QStringLiteral("org.freedesktop.DBus.Properties");
}

BusMessage toMessage(const QJsonObject& object)
{
    const auto text = [&object](const char* key) { return object.value(QLatin1String(key)).toString(); };
    return {text("type"),      text("sender"),
            text("path"),      text("interface"),
            text("member"),    text("signature"),
            text("errorName"), text("errorText"),
            text("text"),      object[QStringLiteral("body")].toArray()};
}

} // namespace

QByteArray BusMessage::bytes() const
{
    QJsonValue value = body.at(0);
    if (value.isObject()) {
        value = value.toObject().value(QStringLiteral("value"));
    }
    return QByteArray::fromHex(value.toString().toLatin1());
}

RawBusClient::RawBusClient()
{
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    QObject::connect(&m_process, &QProcess::readyReadStandardOutput, &m_process, [this] { readLines(); });
    m_process.start(qEnvironmentVariable("PLIM_RAW_BUS_CLIENT"), QStringList());
    waitFor([this] { return !m_name.isEmpty(); });
}

RawBusClient::~RawBusClient()
{
    close();
}

BusMessage RawBusClient::call(const QString& path, const QString& interface, const QString& member,
                              const QString& signature, const QStringList& arguments)
{
    return call(BusCall{path, interface, member, signature, arguments});
}

int RawBusClient::start(const BusCall& call)
{
    const QString destination =
        call.destination.isEmpty() ? QDBusConnection::systemBus().baseService() : call.destination;
    const QString flags = call.noReply ? QStringLiteral("noreply") : QStringLiteral("-");
    QStringList fields{QStringLiteral("call"),
                       flags,
                       QString::number(call.timeoutMs),
                       destination,
                       call.path,
                       call.interface,
                       call.member,
                       call.signature};
    return request(fields << call.arguments);
}

BusMessage RawBusClient::answer(int id)
{
    waitFor([this, id] { return isAnswered(id); });
    return m_answers.take(id);
}

BusMessage RawBusClient::get(const QString& path, const QString& interface, const QString& property)
{
    return call(path, propertiesInterface(), QStringLiteral("Get"), QStringLiteral("ss"),
                {interface, property});
}

BusMessage RawBusClient::getAll(const QString& path, const QString& interface)
{
    return call(path, propertiesInterface(), QStringLiteral("GetAll"), QStringLiteral("s"), {interface});
}

QString RawBusClient::introspect(const QString& path)
{
    return call(path, QStringLiteral("org.freedesktop.DBus.Introspectable"), QStringLiteral("Introspect"))
        .body.at(0)
        .toString();
}

void RawBusClient::match(const QString& rule)
{
    answer(request({QStringLiteral("match"), rule}));
}

void RawBusClient::emitSignal(const QString& path, const QString& interface, const QString& member,
                              const QString& signature, const QStringList& arguments)
{
    answer(startSignal(path, interface, member, signature, arguments));
}

int RawBusClient::startSignal(const QString& path, const QString& interface, const QString& member,
                              const QString& signature, const QStringList& arguments)
{
    return request(QStringList{QStringLiteral("signal"), path, interface, member, signature} + arguments);
}

BusMessage RawBusClient::own(const QString& busName)
{
    return answer(request({QStringLiteral("own"), busName}));
}

void RawBusClient::ping(const QString& destination)
{
    BusCall call{QStringLiteral("/"), peerInterface(), QStringLiteral("Ping")};
    call.destination = destination;
    this->call(call);
}

QVector<BusMessage> RawBusClient::takeSignals()
{
    ping();
    return std::exchange(m_signals, {});
}

void RawBusClient::close()
{
    if (m_process.state() != QProcess::NotRunning) {
        m_process.closeWriteChannel();
        m_process.waitForFinished();
    }
}

bool RawBusClient::waitFor(const std::function<bool()>& condition)
{
    QEventLoop loop;
    const auto check = [&] {
        if (condition() || m_process.state() == QProcess::NotRunning) {
            loop.quit();
        }
    };
    // A reader of its own, connected after the one that fills the answers, so it sees them filled.
    QObject::connect(&m_process, &QProcess::readyReadStandardOutput, &loop, check);
    QObject::connect(&m_process, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), &loop, check);
    QTimer patience;
    QObject::connect(&patience, &QTimer::timeout, &loop, &QEventLoop::quit);
    patience.start(patienceMs);
    if (!condition() && m_process.state() != QProcess::NotRunning) {
        loop.exec();
    }
    return condition();
}

int RawBusClient::request(const QStringList& fields)
{
    const int id = ++m_lastId;
    QStringList numbered = fields;
    numbered.insert(1, QString::number(id));
    QByteArrayList encoded;
    for (const QString& field : numbered) {
        // Slashes, colons and the like may stay; blanks, percent signs and line ends may not.
        encoded << QUrl::toPercentEncoding(field, "/:_{}(),='");
    }
    m_process.write(encoded.join(' ') + '\n');
    return id;
}

void RawBusClient::readLines()
{
    while (m_process.canReadLine()) {
        const QJsonObject object = QJsonDocument::fromJson(m_process.readLine()).object();
        const BusMessage message = toMessage(object);
        if (message.type == QLatin1String("ready")) {
            m_name = object.value(QStringLiteral("name")).toString();
        } else if (message.type == QLatin1String("signal")) {
            m_signals << message;
        } else {
            m_answers.insert(object.value(QStringLiteral("id")).toInt(), message);
        }
    }
}
