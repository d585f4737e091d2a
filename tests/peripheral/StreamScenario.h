#pragma once

#include "Device.h"
#include "StreamPattern.h"

/** A device with a stream, and phones of the stand-in daemon. */
class StreamScenario : public QObject
{
protected:
    static plim::StreamService overTheBus()
    {
        plim::StreamService service;
        service.transport = plim::Characteristic::Transport::Bus;
        return service;
    }
    /** Writes that BlueZ answers after the program has. */
    static plim::StreamService acknowledged()
    {
        plim::StreamService service = overTheBus();
        service.rxAccess = plim::Access().write();
        return service;
    }
    void begin(const plim::StreamService& service = overTheBus())
    {
        m_ble = std::make_unique<PlimBleTest>();
        m_device = std::make_unique<Device>();
        m_stream = std::make_unique<plim::Stream>(&m_device->app, service);
        m_rx = m_stream->rx()->dbusPath();
        m_tx = m_stream->tx()->dbusPath();
        QVERIFY(m_device->ready(*m_ble));
    }
    QByteArray received(PlimBleTest::Phone& phone) const { return phone.notifications(m_tx).join(); }
    /** Returns when the stream has the bytes: BlueZ acknowledges a write before it passes it on, unless the
     * access is acknowledged(). */
    void write(PlimBleTest::Phone& phone, const QByteArray& bytes)
    {
        const qint64 before = m_stream->bytesAvailable();
        phone.write(m_rx, bytes);
        EVENTUALLY_COMPARE(m_stream->bytesAvailable(), before + bytes.size());
    }
    static QByteArray pattern(int size) { return StreamPattern::bytes(0, size); }
    void end()
    {
        m_stream.reset();
        m_device.reset();
        m_ble.reset();
    }

    std::unique_ptr<PlimBleTest> m_ble;
    std::unique_ptr<Device> m_device;
    std::unique_ptr<plim::Stream> m_stream;
    QString m_rx;
    QString m_tx;
};
