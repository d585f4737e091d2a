// A daemon that owns org.bluez and is otherwise empty, by the name that the real one has.
// usage: bluetoothd [--hidden]    --hidden: /proc shows its program file to nobody without special rights
//        bluetoothd --version     prints what is in the file "version" beside it; without that file, sleeps
//        for ever

#include <QCoreApplication>
#include <QDBusConnection>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/prctl.h>
#include <unistd.h>

namespace {

/** Before anything of Qt is set up: the doctor waits three seconds for the answer. */
int tellVersion()
{
    const auto folder = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    std::ifstream file(folder / "version");
    while (!file.is_open()) {
        ::pause();
    }
    std::string version;
    std::getline(file, version);
    std::puts(version.c_str());
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const auto isOption = [&](const char* option) { return argc > 1 && std::strcmp(argv[1], option) == 0; };
    if (isOption("--version")) {
        return tellVersion();
    }
    const QCoreApplication program(argc, argv);
    if (isOption("--hidden")) {
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
