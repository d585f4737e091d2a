// Builds, changes, deletes and re-enters trees and advertisements at random, with the stand-in daemon on the
// bus, and looks now and then whether all is well.

#include "BleManager.h"
#include "Figures.h"
#include "LoadOptions.h"
#include "RandomLifetimes.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <cstdio>

namespace {

constexpr int operationsBetweenChecks = 5000;
constexpr qint64 heapSlack = 256 << 10; // caches of Qt, such as those of types and of the event loop
constexpr qint64 heapPerName = 100;     // Qt lists each bus name as often as an application requests it

int fail(unsigned seed, qint64 operations, const QString& what)
{
    std::printf("FAILED after %lld operations with seed %u: %s\n", operations, seed, qPrintable(what));
    return 1;
}

int run(unsigned seed, qint64 count, bool verbose)
{
    Simulator daemon({QStringLiteral("--accept-everything")});
    BleManager::instance();
    RandomLifetimes lifetimes(seed, &daemon, verbose);
    QElapsedTimer time;
    time.start();
    Figures first = {};
    qint64 nextCheck = operationsBetweenChecks;
    while (lifetimes.operations() < count) {
        lifetimes.run();
        QCoreApplication::processEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        if (lifetimes.operations() < nextCheck && lifetimes.operations() < count) {
            continue;
        }
        const QString wrong = lifetimes.discrepancy();
        if (!wrong.isEmpty()) {
            return fail(seed, lifetimes.operations(), wrong);
        }
        lifetimes.clear();
        daemon.clearCalls();
        const Figures now = Figures::now();
        std::printf("%9lld operations: %s\n", lifetimes.operations(), qPrintable(now.text()));
        std::fflush(stdout);
        if (first.objects == 0) {
            first = now;
        } else if (now.objects != first.objects || now.descriptors != first.descriptors ||
                   now.heap >
                       first.heap + heapSlack + heapNoise() + heapPerName * lifetimes.builtApplications()) {
            return fail(seed, lifetimes.operations(), QStringLiteral("not returned to %1").arg(first.text()));
        }
        nextCheck += operationsBetweenChecks;
    }
    std::printf("%lld operations, %lld of them inside others, seed %u, digest %s, %lld s\n",
                lifetimes.operations(), lifetimes.nested(), seed, lifetimes.digest().constData(),
                time.elapsed() / 1000);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication program(argc, argv);
    LoadOptions options(
        1, QStringLiteral(
               "Runs random operations on trees and advertisements; the last line names their digest."));
    options.addCount(QStringLiteral("operations"), QStringLiteral("How many operations."), 100000);
    const QCommandLineOption verbose(QStringLiteral("verbose"), QStringLiteral("Print each operation."));
    options.addOption(verbose);
    options.process(program);
    followObjects();
    buildEveryLogLine();
    std::printf("seed %u\n", options.seed());
    return run(options.seed(), options.count(QStringLiteral("operations")), options.isSet(verbose));
}
