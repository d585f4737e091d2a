// Sockets for notifications and writes at random: closed at every moment, never read, packets of every
// length, calls in every order, and slots that delete what they are called from. Looks at the end of each
// round whether all is returned, and at each packet whether it is the next one.

#include "Figures.h"
#include "LoadOptions.h"
#include "RandomSockets.h"

#include <QCoreApplication>

#include <cstdio>

namespace {

constexpr int stepsOfARound = 400;
constexpr qint64 heapSlack = 256 << 10; // caches of Qt

QString runRound(std::mt19937& random, int number)
{
    static const QStringList versions{"0542"_qs, "0548"_qs, "0552"_qs};
    RandomSockets round(random, versions.at(number % int(versions.size())));
    if (!round.ready()) {
        return "BlueZ is not known in time"_qs;
    }
    for (int step = 0; step < stepsOfARound && round.wrong().isEmpty(); ++step) {
        round.step();
    }
    round.finish();
    return round.wrong();
}

int run(unsigned seed, int rounds)
{
    std::mt19937 random(seed);
    Figures first = {};
    for (int round = 0; round < rounds; ++round) {
        QString wrong = runRound(random, round);
        // What is deleted later ends in its own time.
        static_cast<void>(QTest::qWaitFor(
            [] {
                QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
                return Figures::now().objects == 0;
            },
            30000));
        const Figures now = Figures::now();
        if (round == 0) {
            first = now;
        }
        if (wrong.isEmpty() && (now.objects != 0 || now.descriptors != first.descriptors ||
                                now.heap > first.heap + heapSlack + heapNoise())) {
            wrong = "not returned to "_qs + first.text() + ": "_qs + now.text();
        }
        if (!wrong.isEmpty()) {
            std::printf("FAILED in round %d with seed %u: %s\n", round, seed, qPrintable(wrong));
            return 1;
        }
    }
    std::printf("%d rounds of %d steps, seed %u: %s\n", rounds, stepsOfARound, seed,
                qPrintable(Figures::now().text()));
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication program(argc, argv);
    LoadOptions options(
        7, QStringLiteral("Uses sockets for notifications and writes at random, with a hostile daemon."));
    options.addCount(QStringLiteral("rounds"), QStringLiteral("Rounds."), 20);
    options.process(program);
    followObjects();
    buildEveryLogLine();
    return run(options.seed(), int(options.count(QStringLiteral("rounds"))));
}
