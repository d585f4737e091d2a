// Builds, changes, deletes and re-enters trees and advertisements at random, with the stand-in daemon on the
// bus, and looks now and then whether all is well.

#include "BleManager.h"
#include "Figures.h"
#include "World.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QElapsedTimer>

#include <cstdio>

namespace {

constexpr int deedsBetweenChecks = 5000;
constexpr qint64 heapSlack = 256 << 10; // caches of Qt, such as those of types and of the event loop
constexpr qint64 heapPerName = 100;     // Qt lists each bus name as often as an application requests it

int fail(unsigned seed, qint64 deeds, const QString& what)
{
    std::printf("FAILED after %lld deeds with seed %u: %s\n", deeds, seed, qPrintable(what));
    return 1;
}

int run(unsigned seed, qint64 operations, bool verbose)
{
    Simulator daemon({QStringLiteral("--accept-everything")});
    BleManager::instance();
    World world(seed, &daemon, verbose);
    QElapsedTimer time;
    time.start();
    Figures first = {};
    qint64 nextCheck = deedsBetweenChecks;
    while (world.deeds() < operations) {
        world.act();
        QCoreApplication::processEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        if (world.deeds() < nextCheck && world.deeds() < operations) {
            continue;
        }
        const QString wrong = world.discrepancy();
        if (!wrong.isEmpty()) {
            return fail(seed, world.deeds(), wrong);
        }
        world.clear();
        daemon.clearCalls();
        const Figures now = Figures::now();
        std::printf("%9lld deeds: %s\n", world.deeds(), qPrintable(now.text()));
        std::fflush(stdout);
        if (first.objects == 0) {
            first = now;
        } else if (now.objects != first.objects || now.descriptors != first.descriptors ||
                   now.heap >
                       first.heap + heapSlack + heapNoise() + heapPerName * world.builtApplications()) {
            return fail(seed, world.deeds(), QStringLiteral("not returned to %1").arg(first.text()));
        }
        nextCheck += deedsBetweenChecks;
    }
    std::printf("%lld deeds, %lld of them inside others, seed %u, digest %s, %lld s\n", world.deeds(),
                world.nested(), seed, world.digest().constData(), time.elapsed() / 1000);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication program(argc, argv);
    QCommandLineParser arguments;
    arguments.setApplicationDescription(
        QStringLiteral("Runs random lives; its last line names their digest."));
    arguments.addHelpOption();
    const QCommandLineOption operations(QStringLiteral("operations"), QStringLiteral("How many deeds."),
                                        QStringLiteral("count"), QStringLiteral("100000"));
    const QCommandLineOption seed(QStringLiteral("seed"), QStringLiteral("What all choices follow from."),
                                  QStringLiteral("number"), QStringLiteral("1"));
    const QCommandLineOption verbose(QStringLiteral("verbose"), QStringLiteral("Print each deed."));
    arguments.addOptions({operations, seed, verbose});
    arguments.process(program);
    followObjects();
    buildEveryLogLine();
    std::printf("seed %s\n", qPrintable(arguments.value(seed)));
    return run(arguments.value(seed).toUInt(), arguments.value(operations).toLongLong(),
               arguments.isSet(verbose));
}
