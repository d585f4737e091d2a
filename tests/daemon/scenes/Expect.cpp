#include "Expect.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QTimer>

#include <cstdio>

namespace {

int failureCount = 0;
std::function<bool()> isSceneSpoilt = [] { return false; };

void print(const char* label, const QString& line)
{
    std::printf("    %s  %s\n", label, qPrintable(line));
    std::fflush(stdout);
}

} // namespace

namespace Expect {

void setSpoilt(std::function<bool()> isSpoilt)
{
    isSceneSpoilt = std::move(isSpoilt);
}

void that(bool condition, const QString& what, const QString& instead)
{
    if (condition) {
        print("ok  ", what);
        return;
    }
    ++failureCount;
    print("FAIL", instead.isEmpty() ? what : what + ": " + instead);
}

void same(const QStringList& actual, const QStringList& expected, const QString& what)
{
    QStringList missing = expected;
    QStringList surplus;
    for (const QString& item : actual) {
        if (!missing.removeOne(item)) {
            surplus << item;
        }
    }
    that(missing.isEmpty() && surplus.isEmpty(), what,
         "missing " + text(missing) + ", too many " + text(surplus));
}

void note(const QString& text)
{
    print("note", text);
}

bool waitFor(const std::function<bool()>& condition, int seconds)
{
    const QDeadlineTimer deadline(qint64(seconds) * 1000);
    QTimer wakeUp; // conditions that no event announces are looked at now and then
    wakeUp.start(100);
    while (!condition()) {
        if (isSceneSpoilt()) {
            throw Spoilt{};
        }
        if (deadline.hasExpired()) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}

void eventually(const std::function<bool()>& condition, const QString& what,
                const std::function<QString()>& instead, int seconds)
{
    const bool held = waitFor(condition, seconds);
    that(held, what, !held && instead ? instead() : QString());
}

void require(const std::function<bool()>& condition, const QString& what, int seconds)
{
    if (!waitFor(condition, seconds)) {
        throw Impossible{"timed out waiting for " + what};
    }
}

int failures()
{
    return failureCount;
}

} // namespace Expect
