#include "QtServer.h"

#include "Layout.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QSocketNotifier>

#include <cstdio>
#include <memory>
#include <unistd.h>

QtControl::QtControl(MeasuredServer& server) : m_server(server) {}

void QtControl::Mark(const QString& name)
{
    Meter::mark(name.toUtf8().constData());
}

void QtControl::Notify(uint bytes, uint count)
{
    QByteArray value(int(bytes), 'x');
    for (uint i = 0; i < count; ++i) {
        value[0] = char(i);
        m_server.notify(value);
    }
}

void QtControl::Grow(const QString& root, uint characteristics)
{
    m_server.grow(root, characteristics);
}

void QtControl::Shrink()
{
    m_server.shrink();
}

qulonglong QtControl::Build(const QString& what, uint count, qulonglong& destroy, qulonglong& heap)
{
    const Meter::Costs costs = m_server.build(what, count);
    destroy = costs.destroy;
    heap = costs.heap;
    return costs.build;
}

MeasuredServer::Done QtControl::reply(const QDBusMessage& message)
{
    message.setDelayedReply(true);
    return [message] { QDBusConnection::systemBus().send(message.createReply()); };
}

void QtControl::Register(const QDBusMessage& message)
{
    m_server.registerTree(reply(message));
}

void QtControl::Unregister(const QDBusMessage& message)
{
    m_server.unregisterTree(reply(message));
}

void QtControl::Advertise(const QDBusMessage& message)
{
    m_server.advertise(reply(message));
}

void QtControl::Burst(uint changes, const QDBusMessage& message)
{
    m_server.burst(changes, reply(message));
}

namespace {

void startUp(MeasuredServer& server)
{
    server.grow(QStringLiteral("/com/example/start"), 10);
    server.registerTree([&server] { server.advertise([] { QCoreApplication::quit(); }); });
}

} // namespace

int serve(int argc, char** argv, const QString& busName, const std::function<MeasuredServer*()>& makeServer)
{
    QCoreApplication program(argc, argv);
    const std::unique_ptr<MeasuredServer> server(makeServer());
    if (program.arguments().contains(QStringLiteral("--startup"))) {
        startUp(*server);
        return QCoreApplication::exec();
    }
    QtControl control(*server);
    auto bus = QDBusConnection::systemBus();
    if (!bus.registerObject(QString::fromStdString(Layout::controlPath), &control,
                            QDBusConnection::ExportAllSlots) ||
        !bus.registerService(busName)) {
        std::fprintf(stderr, "cannot serve as %s\n", qPrintable(busName));
        return 1;
    }
    // Whoever started this keeps standard input open as long as it is needed.
    QSocketNotifier end(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&end, &QSocketNotifier::activated, &program, &QCoreApplication::quit);
    std::puts("ready");
    std::fflush(stdout);
    return QCoreApplication::exec();
}
