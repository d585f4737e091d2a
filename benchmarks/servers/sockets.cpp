// The peripheral layer, measured: notifications through sockets.

#include "GattApplication.h"
#include "Layout.h"
#include "QtServer.h"

#include <plim/peripheral.h>

#include <log4cplus/initializer.h>
#include <log4cplus/logger.h>

namespace {

QString text(const std::string& utf8)
{
    return QString::fromStdString(utf8);
}

class Sockets : public MeasuredServer
{
public:
    Sockets()
    {
        log4cplus::Logger::getInstance("Ble").setLogLevel(log4cplus::OFF_LOG_LEVEL);
        auto* service = plim::Service::create(&m_application, text(Layout::uuid(0)));
        m_notifying = plim::Characteristic::create(service, text(Layout::uuid(Layout::Notifying)),
                                                   plim::Access().read().notify());
        m_notifying->setTransport(plim::Characteristic::Transport::Sockets);
    }

    void notify(const QByteArray& value) override
    {
        if (!m_notifying->notify(value)) {
            qFatal("bench-server-sockets: the socket is full");
        }
    }

    // The rest is measured with the other servers.
    void grow(const QString&, unsigned) override {}
    void shrink() override {}
    Meter::Costs build(const QString&, unsigned) override { return {}; }
    void registerTree(const Done& done) override { done(); }
    void unregisterTree(const Done& done) override { done(); }
    void advertise(const Done& done) override { done(); }
    void burst(unsigned, const Done& done) override { done(); }

private:
    GattApplication m_application{nullptr, text(Layout::root), {}};
    plim::Characteristic* m_notifying = nullptr;
};

} // namespace

int main(int argc, char** argv)
{
    const log4cplus::Initializer logging;
    return serve(argc, argv, QStringLiteral("org.example.Bench.Sockets"), [] { return new Sockets; });
}
