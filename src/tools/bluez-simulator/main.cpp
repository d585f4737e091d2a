#include "CommandLine.h"
#include "ControlObject.h"
#include "Names.h"
#include "Simulator.h"

#include <QCoreApplication>
#include <QSocketNotifier>
#include <QTextStream>
#include <csignal>
#include <cstdio>
#include <sys/signalfd.h>

using namespace simulator;

namespace {

enum ExitCode
{
    Success = 0,
    WrongArguments = 1,
    BusNotReachable = 2,
    NameTaken = 3
};

void print(FILE* file, const QString& line)
{
    QTextStream stream(file);
    stream << line << Qt::endl;
}

int fail(ExitCode code, const QString& reason)
{
    print(stderr, QStringLiteral("plim-bluez-simulator: ") + reason);
    return code;
}

/** Ends the program by itself on the given signals, which must be blocked. */
void quitOnSignals(QCoreApplication& application, const sigset_t& signalSet)
{
    const int descriptor = signalfd(-1, &signalSet, SFD_CLOEXEC | SFD_NONBLOCK);
    auto* notifier = new QSocketNotifier(descriptor, QSocketNotifier::Read, &application);
    QObject::connect(notifier, &QSocketNotifier::activated, &application, &QCoreApplication::quit);
}

/** Prepares the simulator as asked for; returns what is wrong with the wishes or an empty text. */
QString configure(Simulator& simulator, const CommandLine& options)
{
    simulator.state().version = options.version;
    simulator.state().acceptsEverything = options.acceptsEverything;
    if (options.isVerbose) {
        QObject::connect(&simulator.state().calls, &CallLog::recorded,
                         [](const QString&, const QString&, const QString& text) { print(stdout, text); });
    }
    for (const QString& adapter : options.adapters) {
        QString error = simulator.addAdapter(adapter);
        if (!error.isEmpty()) {
            return error;
        }
    }
    return QString();
}

int run(QCoreApplication& application, const CommandLine& options)
{
    QDBusConnection control = Simulator::openBus(options.address, QStringLiteral("control"));
    if (!control.isConnected()) {
        return fail(BusNotReachable, QStringLiteral("cannot reach the bus %1: %2")
                                         .arg(options.address, control.lastError().message()));
    }
    control.connect(QString(), QStringLiteral("/org/freedesktop/DBus/Local"),
                    QStringLiteral("org.freedesktop.DBus.Local"), QStringLiteral("Disconnected"),
                    &application, SLOT(quit()));
    Simulator simulator(control, options.address);
    ControlObject object(simulator);
    const QString wrongWish = configure(simulator, options);
    if (!wrongWish.isEmpty()) {
        return fail(WrongArguments, wrongWish);
    }
    control.registerObject(Names::ControlPath, &object,
                           QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals);
    if (!control.registerService(Names::ControlService)) {
        return fail(NameTaken,
                    QStringLiteral("the name %1 is already taken on this bus").arg(Names::ControlService));
    }
    QString failure;
    if (!options.isAbsent) {
        simulator.appear([&failure](const QString& error) { failure = error; });
    }
    if (!failure.isEmpty()) {
        return fail(NameTaken, failure);
    }
    print(stdout, QStringLiteral("plim-bluez-simulator: ready on %1 as %2, control %3")
                      .arg(options.address, Names::BluezService, Names::ControlService));
    return QCoreApplication::exec();
}

} // namespace

int main(int argc, char** argv)
{
    sigset_t signalSet;
    sigemptyset(&signalSet);
    sigaddset(&signalSet, SIGTERM);
    sigaddset(&signalSet, SIGINT);
    // Threads inherit the mask, so it is set before there is any.
    pthread_sigmask(SIG_BLOCK, &signalSet, nullptr);

    QCoreApplication application(argc, argv);
    quitOnSignals(application, signalSet);
    registerControlTypes();
    CommandLine options;
    const QString error = options.parse(QCoreApplication::arguments());
    return error.isEmpty() ? run(application, options) : fail(WrongArguments, error);
}
