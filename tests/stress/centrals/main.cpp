// Centrals and adapters while phones come and go, adapters are unplugged, the daemon ends and returns, and a
// stranger sends the same signals as the daemon. Objects are made and deleted in between, and inside signals.
// Now and then everything is compared with what the daemon shows.

#include "Figures.h"
#include "LoadOptions.h"
#include "RandomCentrals.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QtTest>

#include <cstdio>

namespace {

constexpr int operationsBetweenChecks = 500;
constexpr qint64 heapSlack = 256 << 10; // caches of Qt

int run(unsigned seed, qint64 count)
{
    RandomCentrals stress(seed);
    QElapsedTimer time;
    time.start();
    Figures first = {};
    for (qint64 done = 1; done <= count; ++done) {
        stress.run();
        if (done % operationsBetweenChecks != 0 && done != count) {
            continue;
        }
        const QString wrong = stress.discrepancy();
        stress.clear();
        // What is deleted later ends in its own time.
        static_cast<void>(QTest::qWaitFor(
            [&first] {
                QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
                return first.objects == 0 || Figures::now().objects == first.objects;
            },
            30000));
        const Figures now = Figures::now();
        std::printf("%9lld operations: %s\n", done, qPrintable(now.text()));
        std::fflush(stdout);
        first = first.objects == 0 ? now : first;
        const bool hasGrown = now.objects != first.objects || now.descriptors != first.descriptors ||
                              now.heap > first.heap + heapSlack + heapNoise();
        if (!wrong.isEmpty() || hasGrown) {
            std::printf("FAILED with seed %u: %s\n", seed,
                        wrong.isEmpty() ? qPrintable("not returned to " + first.text()) : qPrintable(wrong));
            return 1;
        }
    }
    std::printf("%lld operations, seed %u, %lld s\n", count, seed, time.elapsed() / 1000);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication program(argc, argv);
    LoadOptions options(
        1,
        QStringLiteral(
            "Makes and deletes centrals and adapters at random, while the daemon and phones come and go."));
    options.addCount(QStringLiteral("operations"), QStringLiteral("How many operations."), 5000);
    options.process(program);
    followObjects();
    buildEveryLogLine();
    return run(options.seed(), options.count(QStringLiteral("operations")));
}
