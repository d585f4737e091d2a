#pragma once

#include "Simulator.h"
#include "StreamPattern.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QObject>

#include <algorithm>
#include <functional>

/** The phone's side: writes the pattern, and checks what it is notified of. */
class Phone : public QObject
{
    Q_OBJECT

public:
    Phone(const QString& rx, const QString& tx) : m_rx(rx), m_tx(tx)
    {
        const QDBusMessage answer = Simulator::control(
            QStringLiteral("AddPhone"), {QStringLiteral("hci0"), QStringLiteral("00:AA:01:01:00:02")});
        m_path = answer.arguments().constFirst().value<QDBusObjectPath>().path();
        if (!QDBusConnection::systemBus().connect(service, m_path, interface, QStringLiteral("Notified"),
                                                  QStringLiteral("oay"), this,
                                                  SLOT(on_notified(QDBusMessage)))) {
            qFatal("FAILED: no signals of the phone");
        }
    }

    /** Subscribes; what it gets and sends begins anew. */
    void begin(int writesAtOnce, bool withResponse)
    {
        m_writesAtOnce = writesAtOnce;
        m_method = withResponse ? QStringLiteral("Write") : QStringLiteral("WriteWithoutResponse");
        m_received = StreamPattern();
        m_sent = 0;
        m_left = 0;
        call(QStringLiteral("Subscribe"),
             {QVariant::fromValue(QDBusObjectPath(m_tx)), QStringLiteral("notifications")}, {});
    }
    void send(qint64 bytes)
    {
        m_left = bytes;
        fill();
    }
    /** Whether the daemon takes what waits for it in the socket. */
    void setReading(bool isReading) { call(QStringLiteral("SetReading"), {isReading}, {}); }
    void connectLink() { call(QStringLiteral("Connect"), {}, {}); }
    void loseLink()
    {
        m_left = 0;
        call(QStringLiteral("Disconnect"), {}, {});
    }

    const StreamPattern& received() const { return m_received; }
    /** How many bytes it has written. */
    qint64 sent() const { return m_sent; }
    int rejections() const { return m_rejections; }
    bool isIdle() const { return m_open == 0; }

signals:
    void rejected();

private slots:
    void on_notified(const QDBusMessage& signal)
    {
        if (signal.arguments().value(0).value<QDBusObjectPath>().path() == m_tx) {
            m_received.take(signal.arguments().value(1).toByteArray());
        }
    }

private:
    using Finished = std::function<void(const QDBusMessage& answer)>;

    void call(const QString& method, const QVariantList& arguments, const Finished& finished)
    {
        QDBusMessage message = QDBusMessage::createMethodCall(service, m_path, interface, method);
        message.setArguments(arguments);
        auto* watcher =
            new QDBusPendingCallWatcher(QDBusConnection::systemBus().asyncCall(message, 600000), this);
        ++m_open;
        connect(watcher, &QDBusPendingCallWatcher::finished, this,
                [this, finished](QDBusPendingCallWatcher* answered) {
                    answered->deleteLater();
                    --m_open;
                    if (finished) {
                        finished(answered->reply());
                    }
                });
    }

    void fill()
    {
        while (m_left > 0 && m_open < m_writesAtOnce) {
            const int size = int(std::min<qint64>(m_left, writeSize));
            QVariantList arguments{QVariant::fromValue(QDBusObjectPath(m_rx)),
                                   StreamPattern::bytes(m_sent, size)};
            if (m_method == QLatin1String("Write")) {
                arguments << QVariant::fromValue(ushort(0));
            }
            m_sent += size;
            m_left -= size;
            call(m_method, arguments, [this, size](const QDBusMessage& answer) {
                const QString error = answer.errorMessage();
                // The first is the stream's, the second the daemon's if a socket is full.
                if (error.startsWith(QLatin1String("0x81")) || error.startsWith(QLatin1String("0x0e"))) {
                    ++m_rejections;
                    m_sent -= size; // it is tried again: no other one was sent behind it
                    m_left += size;
                    emit rejected();
                }
                fill();
            });
        }
    }

    static constexpr int writeSize = 512;

    const QString service = QStringLiteral("org.plim.BluezSimulator");
    const QString interface = QStringLiteral("org.plim.BluezSimulator1.Phone");
    const QString m_rx;
    const QString m_tx;
    QString m_path;
    QString m_method;
    int m_writesAtOnce = 1;
    int m_open = 0;
    StreamPattern m_received;
    qint64 m_sent = 0;
    qint64 m_left = 0;
    int m_rejections = 0;
};
