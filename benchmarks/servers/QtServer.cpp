#include "QtServer.h"

#include "Layout.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QSocketNotifier>

#include <cstdio>
#include <memory>
#include <unistd.h>

QtControl::QtControl(Subject& subject) : m_subject(subject) {}

void QtControl::Mark(const QString& name)
{
    Meter::mark(name.toUtf8().constData());
}

void QtControl::Notify(uint bytes, uint count)
{
    QByteArray value(int(bytes), 'x');
    for (uint i = 0; i < count; ++i) {
        value[0] = char(i);
        m_subject.notify(value);
    }
}

void QtControl::Grow(const QString& root, uint characteristics)
{
    m_subject.grow(root, characteristics);
}

void QtControl::Shrink()
{
    m_subject.shrink();
}

qulonglong QtControl::Build(const QString& what, uint count, qulonglong& destroy, qulonglong& heap)
{
    const Meter::Costs costs = m_subject.build(what, count);
    destroy = costs.destroy;
    heap = costs.heap;
    return costs.build;
}

Subject::Done QtControl::reply(const QDBusMessage& message)
{
    message.setDelayedReply(true);
    return [message] { QDBusConnection::systemBus().send(message.createReply()); };
}

void QtControl::Register(const QDBusMessage& message)
{
    m_subject.registerTree(reply(message));
}

void QtControl::Unregister(const QDBusMessage& message)
{
    m_subject.unregisterTree(reply(message));
}

void QtControl::Advertise(const QDBusMessage& message)
{
    m_subject.advertise(reply(message));
}

void QtControl::Burst(uint changes, const QDBusMessage& message)
{
    m_subject.burst(changes, reply(message));
}

namespace {

void startUp(Subject& subject)
{
    subject.grow(QStringLiteral("/com/example/start"), 10);
    subject.registerTree([&subject] { subject.advertise([] { QCoreApplication::quit(); }); });
}

} // namespace

int serve(int argc, char** argv, const QString& busName, const std::function<Subject*()>& makeSubject)
{
    QCoreApplication program(argc, argv);
    const std::unique_ptr<Subject> subject(makeSubject());
    if (program.arguments().contains(QStringLiteral("--startup"))) {
        startUp(*subject);
        return QCoreApplication::exec();
    }
    QtControl control(*subject);
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
