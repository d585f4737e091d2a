// A peripheral that is told on standard input what to be; ends with its input. The library's log goes to
// stderr.

#include "Interpreter.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <log4cplus/configurator.h>
#include <log4cplus/logger.h>

#include <unistd.h>

int main(int argc, char** argv)
{
    QCoreApplication program(argc, argv);
    log4cplus::BasicConfigurator(log4cplus::Logger::getDefaultHierarchy(), true).configure();
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::DEBUG_LOG_LEVEL);

    Interpreter interpreter;
    QByteArray pending;
    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, &interpreter, [&] {
        char buffer[4096];
        const ssize_t count = ::read(STDIN_FILENO, buffer, sizeof buffer);
        if (count <= 0) {
            QCoreApplication::quit();
            return;
        }
        pending.append(buffer, int(count));
        for (auto end = pending.indexOf('\n'); end >= 0; end = pending.indexOf('\n')) {
            const QString line = QString::fromUtf8(pending.left(end));
            pending.remove(0, end + 1);
            interpreter.execute(line);
        }
    });
    say("ready");
    return QCoreApplication::exec();
}
