#include "Adapters.h"
#include "Bus.h"
#include "CommandLine.h"
#include "Daemon.h"
#include "Name.h"
#include "Report.h"

#include <QCoreApplication>

#include <cstdio>
#include <cstdlib>

namespace {

void examine(const CommandLine& options, const Bus& bus, Report& report)
{
    const Daemon daemon = Daemon::find(bus, report);
    const Adapters adapters = daemon.isUsable ? Adapters::examine(daemon, report) : Adapters();
    if (!options.name.isEmpty()) {
        const bool isOwned = Name::acquire(bus, options.name, report);
        if (!adapters.gattManager.isEmpty()) {
            Name::examineCalls(bus, daemon, adapters, isOwned ? options.name : QString(), report);
        }
        if (isOwned) {
            Name::release(bus, options.name);
        }
    }
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
