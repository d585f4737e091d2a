#include "Adapters.h"
#include "Bus.h"
#include "CommandLine.h"
#include "Configuration.h"
#include "DBusTypes.h"
#include "Daemon.h"
#include "Name.h"
#include "Report.h"
#include "Trial.h"

#include <QCoreApplication>

#include <log4cplus/configurator.h>
#include <log4cplus/logger.h>

#include <cstdio>
#include <cstdlib>

using namespace doctor;

namespace {

void examine(const CommandLine& options, const Bus& bus, Report& report)
{
    const Daemon daemon = Daemon::find(bus, report);
    if (daemon.isUsable) {
        Configuration::examine(options, daemon, report);
    }
    const Adapters adapters =
        daemon.isUsable ? Adapters::examine(daemon, options.localName, report) : Adapters();
    const bool isOwned = !options.name.isEmpty() && Name::acquire(bus, options.name, report);
    const bool isTrial = options.serves || options.advertises;
    bool isCalled = true;
    if (!adapters.gatt.path.isEmpty() && (isTrial || !options.name.isEmpty())) {
        isCalled = Name::examineCalls(bus, daemon, adapters, isOwned ? options.name : QString(), report);
    }
    if (isTrial && isCalled && (!options.serves || adapters.gatt.isUsable) &&
        (!options.advertises || adapters.advertising.isUsable)) {
        Trial(options, adapters, report).run();
    } else if (isTrial) {
        report.warning("trial.skipped", "Nothing was registered, because of the problems above.",
                       "Solve them and try again.");
    }
    if (isOwned) {
        Name::release(bus, options.name);
    }
}

void configureLog(bool isVerbose)
{
    if (isVerbose) {
        log4cplus::BasicConfigurator::doConfigure(log4cplus::Logger::getDefaultHierarchy(), true);
    }
    log4cplus::Logger::getRoot().setLogLevel(isVerbose ? log4cplus::DEBUG_LOG_LEVEL
                                                       : log4cplus::OFF_LOG_LEVEL);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication program(argc, argv);
    QCoreApplication::setApplicationVersion(PLIM_VERSION);
    CommandLine options;
    const QString error = options.parse(QCoreApplication::arguments());
    if (!error.isEmpty()) {
        std::fprintf(stderr, "plim-ble-doctor: %s, see --help\n", qUtf8Printable(error));
        return Report::WrongArguments;
    }
    configureLog(options.isVerbose);
    // Before the first use of the bus: at the program's end Qt destroys its table of types and its thread for
    // the bus in the reverse order of their making. The thread may then still have to delete an answer, and
    // without the table it leaks the values in it.
    registerDBusTypes();
    Report report(options.isJson);
    const Bus bus(options.timeoutMs);
    switch (bus.reach(report)) {
    case Bus::Reach::Reached:
        examine(options, bus, report);
        break;
    case Bus::Reach::Unreachable:
        break;
    case Bus::Reach::Silent:
        std::_Exit(report.finish());
    }
    return report.finish();
}
