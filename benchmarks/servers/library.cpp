// The library, measured.

#include "BleManager.h"
#include "GapAdvertisement.h"
#include "GattApplication.h"
#include "Layout.h"
#include "QtServer.h"

#include <log4cplus/appender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <memory>
#include <vector>

namespace {

constexpr auto readWriteNotify =
    GattCharacteristic::Read | GattCharacteristic::Write | GattCharacteristic::Notify;

QString text(const std::string& utf8)
{
    return QString::fromStdString(utf8);
}

/** Counts the daemon's answers, which the manager tells in the log only. */
class Answers : public log4cplus::Appender
{
public:
    ~Answers() override { destructorImpl(); }
    void close() override {}

    void await(unsigned answers, const MeasuredServer::Done& done)
    {
        m_left = answers;
        m_done = done;
        log4cplus::Logger::getInstance("Ble").setLogLevel(log4cplus::DEBUG_LOG_LEVEL);
    }

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override
    {
        const bool isAnswer = event.getMessage().rfind("D-Bus call", 0) == 0;
        if (isAnswer && m_left > 0 && --m_left == 0) {
            log4cplus::Logger::getInstance("Ble").setLogLevel(log4cplus::OFF_LOG_LEVEL);
            m_done();
        }
    }

private:
    unsigned m_left = 0;
    MeasuredServer::Done m_done;
};

class Library : public MeasuredServer
{
public:
    Library();
    void notify(const QByteArray& value) override { m_notifying->setValue(value); }
    void grow(const QString& root, unsigned characteristics) override;
    void shrink() override { m_tree.reset(); }
    Meter::Costs build(const QString& what, unsigned count) override;
    void registerTree(const Done& done) override;
    void unregisterTree(const Done& done) override;
    void advertise(const Done& done) override;
    void burst(unsigned changes, const Done& done) override;

private:
    Answers* m_answers = new Answers;
    log4cplus::SharedAppenderPtr m_appender{m_answers};
    GattApplication m_application{nullptr, text(Layout::root), {}};
    GattCharacteristic* m_notifying = nullptr;
    std::unique_ptr<GattApplication> m_tree;
    std::unique_ptr<GapAdvertisement> m_advertisement;
};

Library::Library()
{
    auto logger = log4cplus::Logger::getInstance("Ble");
    logger.setLogLevel(log4cplus::OFF_LOG_LEVEL);
    logger.setAdditivity(false);
    logger.addAppender(m_appender);

    GattService* service = m_application.createService(text(Layout::uuid(0)), true);
    GattCharacteristic* control =
        service->createCharacteristic(text(Layout::uuid(Layout::Control)), readWriteNotify);
    for (unsigned i = Layout::Value20; i < Layout::CharacteristicEnd; ++i) {
        if (i == Layout::Control) {
            continue;
        }
        GattCharacteristic* characteristic = service->createCharacteristic(
            text(Layout::uuid(i)), readWriteNotify, i == Layout::Paged ? control : nullptr);
        const QByteArray value(int(Layout::valueSize(i)), 'v');
        characteristic->setValue(value);
        if (i == Layout::Callback20 || i == Layout::Callback512) {
            characteristic->setReadCallback([value] { return QByteArray(value); });
        }
        if (i == Layout::Notifying) {
            m_notifying = characteristic;
        }
    }
}

void Library::grow(const QString& root, unsigned characteristics)
{
    m_tree = std::make_unique<GattApplication>(nullptr, root, QString());
    GattService* service = m_tree->createService(text(Layout::uuid(0)), true);
    for (unsigned i = 0; i < characteristics; ++i) {
        service->createCharacteristic(text(Layout::uuid(i + 1)), readWriteNotify);
    }
}

Meter::Costs Library::build(const QString& what, unsigned count)
{
    const QString root = QStringLiteral("/com/example/build");
    if (what == QLatin1String("tree")) {
        return qtCosts([&] { grow(root, count); }, [&] { shrink(); });
    }
    if (what == QLatin1String("advertisement")) {
        std::vector<std::unique_ptr<GapAdvertisement>> all(count);
        const auto build = [&] {
            for (unsigned i = 0; i < count; ++i) {
                all[i] = std::make_unique<GapAdvertisement>(
                    nullptr, root + '/' + text("a" + std::to_string(i)), GapAdvertisement::SetProperties);
            }
        };
        return qtCosts(build, [&] { all.clear(); });
    }
    auto application = std::make_unique<GattApplication>(nullptr, root, QString());
    GattService* service = application->createService(text(Layout::uuid(0)), true);
    GattCharacteristic* characteristic =
        service->createCharacteristic(text(Layout::uuid(0)), readWriteNotify);
    if (what == QLatin1String("getter")) {
        const auto get = [&] {
            for (unsigned i = 0; i < count; ++i) {
                characteristic->uUID();
            }
        };
        return qtCosts(get, [] {});
    }
    const auto build = [&] {
        for (unsigned i = 1; i <= count; ++i) {
            const QString uuid = text(Layout::uuid(i));
            if (what == QLatin1String("service")) {
                application->createService(uuid, true);
            } else if (what == QLatin1String("characteristic")) {
                service->createCharacteristic(uuid, readWriteNotify);
            } else {
                characteristic->addDescriptor(uuid, GattDescriptor::Read);
            }
        }
    };
    return qtCosts(build, [&] { application.reset(); });
}

void Library::registerTree(const Done& done)
{
    m_answers->await(1, done);
    BleManager::instance()->add(m_tree.get());
}

void Library::unregisterTree(const Done& done)
{
    m_answers->await(1, done);
    BleManager::instance()->remove(m_tree.get());
}

void Library::advertise(const Done& done)
{
    m_advertisement = std::make_unique<GapAdvertisement>(
        nullptr, QStringLiteral("/com/example/advertisement"), GapAdvertisement::SetProperties);
    m_advertisement->setLocalName(QStringLiteral("Bench"));
    m_answers->await(1, done);
    BleManager::instance()->add(m_advertisement.get());
}

void Library::burst(unsigned changes, const Done& done)
{
    m_answers->await(2 * changes, done);
    for (unsigned i = 0; i < changes; ++i) {
        m_advertisement->setLocalName(QStringLiteral("Bench ") + QString::number(i));
    }
}

} // namespace

int main(int argc, char** argv)
{
    const log4cplus::Initializer logging;
    return serve(argc, argv, QStringLiteral("org.example.Bench.Library"), [] { return new Library; });
}
