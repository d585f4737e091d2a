// A daemon that owns org.bluez and is otherwise empty, by the name that the real one has.
// usage: bluetoothd [--hidden]    --hidden: /proc shows its program file to nobody without special rights
//        bluetoothd --version     prints what is in the file "version" beside it; without that file, sleeps
//        for ever

#include <QCoreApplication>
#include <QDBusConnection>
#include <QFile>

#include <cstdio>
#include <sys/prctl.h>
#include <unistd.h>

int main(int argc, char** argv)
{
    QCoreApplication program(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.contains("--version")) {
        QFile file(QCoreApplication::applicationDirPath() + "/version");
        while (!file.open(QIODevice::ReadOnly)) {
            ::pause();
        }
        std::printf("%s\n", file.readAll().constData());
        return 0;
    }
    if (arguments.contains("--hidden")) {
        ::prctl(PR_SET_DUMPABLE, 0);
    }
    if (!QDBusConnection::systemBus().registerService("org.bluez")) {
        std::fprintf(stderr, "cannot own org.bluez\n");
        return 1;
    }
    std::printf("ready\n");
    std::fflush(stdout);
    return QCoreApplication::exec();
}
