// The checks that the stand-in daemon passes too, with the real one.

#include "Bluetooth.h"
#include "CheckEnvironment.h"
#include "Expect.h"
#include "Peripheral.h"
#include "Phone.h"
#include "Remote.h"
#include "scenes.h"

#include <QDBusArgument>

namespace {

class RealEnvironment : public CheckEnvironment
{
public:
    QString version() const override { return Scenes::version(); }
    QString adapter() const override { return m_bluetooth.device(); }

    int advertisingLimit() const override
    {
        const QVariantMap manager = Remote::properties(adapter(), "org.bluez.LEAdvertisingManager1");
        const auto capabilities = qdbus_cast<QVariantMap>(manager.value("SupportedCapabilities"));
        return capabilities.value("MaxAdvLen", 251).toInt(); // 5.66 does not tell what btvirt's can
    }
    void recover() override
    {
        // A refusal may corrupt what 5.66 has in its memory; it then aborts at the end of the exchange, which
        // it has come to when it answers further questions.
        bool answers = true;
        for (int question = 0; question < 3; ++question) {
            answers = answers && !Remote::properties(adapter(), Remote::adapterInterface).isEmpty();
        }
        const bool aborted = Expect::waitFor([this] { return !m_bluetooth.daemonRuns(); }, answers ? 1 : 60);
        if (aborted) {
            Expect::that(version() == "5.66", "only 5.66 aborts after a rejection");
            m_bluetooth.startDaemon();
            m_bluetooth.awaitAdapters();
        }
    }

    void meet(Peripheral&) override
    {
        m_phone = std::make_unique<Phone>(m_bluetooth.phone(), m_bluetooth.deviceAddress());
        m_phone->meet();
    }
    QByteArray read(const QString& uuid, quint16 offset) override
    {
        return m_phone->read(uuid, offsetOption(offset));
    }
    void write(const QString& uuid, const QByteArray& value, quint16 offset) override
    {
        m_phone->write(uuid, value, offsetOption(offset));
    }
    void subscribe(const QString& uuid) override { m_phone->subscribe(uuid); }
    void unsubscribe(const QString& uuid) override { m_phone->unsubscribe(uuid); }
    QList<QByteArray> notified(const QString& uuid) override { return m_phone->notified(uuid); }

private:
    static QVariantMap offsetOption(quint16 offset)
    {
        return offset == 0 ? QVariantMap() : QVariantMap{{"offset", QVariant::fromValue(offset)}};
    }

    Bluetooth m_bluetooth;
    std::unique_ptr<Phone> m_phone;
};

} // namespace

void Scenes::same()
{
    RealEnvironment environment;
    runChecks(environment);
}

void Scenes::preflight()
{
    RealEnvironment environment;
    runRegistrationChecks(environment);
}
