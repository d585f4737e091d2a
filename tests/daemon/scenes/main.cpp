// Runs one scene: the library's programs, the real daemon, and a phone on the second controller.

#include "Bluetooth.h"
#include "Child.h"
#include "Expect.h"
#include "scenes.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QElapsedTimer>

#include <cstdio>

namespace {

/** When a scene runs. */
enum When
{
    Always,
    Long,     ///< only among all: it takes long, and others show the most important of it
    OnRequest ///< only by its name
};

struct Scene
{
    const char* name;
    void (*run)();
    When when;
    const char* shows;
};

const Scene scenes[] = {
    {"discover", Scenes::discover, Always, "an advertisement with every part, as a scanner receives it"},
    {"sizes", Scenes::sizes, Always, "advertisements of several sizes"},
    {"tree", Scenes::tree, Always,
     "the whole tree: UUIDs, flags, descriptors, primary and secondary services"},
    {"read", Scenes::read, Always, "reads, with and without a callback, empty, 512 bytes, descriptors"},
    {"pages", Scenes::pages, Always, "1,300 and 65,536 bytes through a control characteristic"},
    {"write", Scenes::write, Always, "short and long writes, to descriptors and controls, each seen once"},
    {"small", Scenes::smallTransfers, Always, "reads and writes in the smallest transfer units"},
    {"notify", Scenes::notify, Always, "subscribing, 200 spaced notifications, a parked value"},
    {"burst", Scenes::burst, Always, "1,000 notifications at once, on one channel as with most phones"},
    {"wideburst", Scenes::wideBurst, Always,
     "the same with the daemon's defaults, which may be several channels"},
    {"change", Scenes::change, Always, "the tree changes while a phone is connected"},
    {"crash", Scenes::crash, Always, "the daemon is killed and started ten times"},
    {"power", Scenes::power, Always, "the adapter is powered off and on"},
    {"keeper", Scenes::keeper, Always, "a keeper: ten power cycles, the advertisement is seen each time"},
    {"keeperlegacy", Scenes::keeperLegacy, Long, "the same with controllers without extended advertising"},
    {"asleep", Scenes::asleep, Long, "a keeper: the machine goes to sleep and wakes up"},
    {"beacon", Scenes::beacon, Long, "ten changes a second, in place and by registrations"},
    {"unsafe", Scenes::unsafe, Long,
     "a change in place while the adapter is off, which 5.66 does not survive"},
    {"second", Scenes::secondCentral, Long, "a keeper: a second central sees the device beside the first"},
    {"room", Scenes::room, Always, "a keeper: another program has all advertisements, and frees one"},
    {"timeout", Scenes::timeout, Long, "a keeper: the time-out of an advertisement passes"},
    {"fields", Scenes::fields, Long, "the fields of plim::Advertisement, as they are broadcast"},
    {"unplug", Scenes::unplug, Always, "the controllers are removed and come back"},
    {"refuse", Scenes::refuse, Always, "the default export mode: refused, logged, survived"},
    {"two", Scenes::two, Always, "two programs with an application each"},
    {"readme", Scenes::readme, Always, "the README's example does what the README says"},
    {"device", Scenes::device, Always, "example 05, a whole device, as a phone sees and uses it"},
    {"doctor", Scenes::doctor, Always, "what plim-ble-doctor says, and a phone sees of its trial"},
    {"same", Scenes::same, Always, "what the stand-in daemon is checked for too: options, notifications"},
    {"preflight", Scenes::preflight, Always,
     "problems that the library finds beforehand, and what the daemon does; the stand-in, too"},
    {"access", Scenes::access, Always, "protected attributes: refused before pairing, allowed after it"},
    {"centrals", Scenes::centrals, Always,
     "who is connected, from its coming to its end; a link that the device ends"},
    {"adapters", Scenes::adapters, Always,
     "one of several adapters chosen, unplugged, its number taken by another one, back"},
    {"errors", Scenes::errors, Always, "every error of a request, as the phone gets it"},
    {"requests", Scenes::requests, Always, "requests answered late and never, refused writes, silent writes"},
    {"pending", Scenes::pending, Always, "50 reads at once, each answered after a while"},
    {"subscribers", Scenes::subscribers, Always,
     "indications, subscribers, two centrals one after the other"},
    {"sockets", Scenes::sockets, Always,
     "notifications, confirmations and writes through sockets; a bonded central that comes back"},
    {"handles", Scenes::handles, Always, "equal UUIDs, handles that stay, included services"},
    {"standard", Scenes::standard, Always, "device information, a battery, the current time"},
    {"battery", Scenes::battery, Always, "a battery, as BlueZ shows it where it is the central"},
    {"lock", Scenes::lock, Always, "example 09, a lock, as a phone pairs with it and opens it"},
    {"justworks", Scenes::justWorks, Always,
     "pairing without a comparison: no window, rejected, cancelled, never answered, accepted"},
    {"numbers", Scenes::comparison, Long, "pairing with a comparison of numbers: the same"},
    {"passkey", Scenes::passkey, Long, "pairing with a passkey that the device shows: the same"},
    {"bonds", Scenes::bonds, Always,
     "a bond survives the restart of the daemon, and ends when the device forgets it"},
    {"forgotten", Scenes::forgotten, Always, "a phone that has forgotten its bond cannot pair again"},
    {"repairconfirm", Scenes::repairConfirmed, Long, "the same with JustWorksRepairing = confirm"},
    {"repairalways", Scenes::repairAlways, Long, "the same with JustWorksRepairing = always"},
    {"repairnumbers", Scenes::repairNumbers, Long, "the same with a comparison of numbers"},
    {"typing", Scenes::typing, Long, "pairing with a passkey that is typed on the device: the same"},
    {"diary", Scenes::diary, Always, "example 10, as two users pair with it, and its factory reset"},
    {"console", Scenes::console, Always, "example 11, a serial console, as a phone types and reads"},
    {"stream", Scenes::stream, Long, "a serial stream: 128 KiB each way, and a link that is lost"},
    {"streamheld", Scenes::streamHeld, Long,
     "a serial stream with sockets for writes: a program that does not read"},
    {"streambus", Scenes::streamOverBus, Long, "a serial stream without sockets: a megabyte each way"},
    {"streammb", Scenes::streamMegabyte, OnRequest, "a serial stream with sockets: a megabyte each way"},
    {"costs", Scenes::costs, OnRequest,
     "what notifications and writes cost the daemon, the bus and the program"},
    {"demo", Scenes::demo, OnRequest, "what a phone sees of the demo's peripheral"},
};

/** Exit codes, which vm/init knows. */
enum ExitCode
{
    Passed = 0,
    Failed = 1,
    WrongUsage = 2,
    Unsupported = 3,
    NoVerdict = 4, // the scene has to be repeated
};

QString daemonVersion;

int run(const Scene& scene)
{
    QElapsedTimer timer;
    timer.start();
    std::printf("  %s: %s\n", scene.name, scene.shows);
    std::fflush(stdout);
    try {
        scene.run();
    } catch (const Expect::Impossible& impossible) {
        Expect::that(false, impossible.reason);
    } catch (const Expect::Spoilt&) {
        // Told below, as where the scene has come to its end without noticing.
    } catch (const Expect::Unsupported& unsupported) {
        std::printf("  %s: cannot be done here: %s\n", scene.name, qPrintable(unsupported.reason));
        return Unsupported;
    }
    const double seconds = double(timer.elapsed()) / 1000;
    if (!Bluetooth::emulatorDeath().isEmpty()) {
        std::printf("  %s: no verdict: btvirt, which plays the controllers, %s within %.1f s\n", scene.name,
                    qPrintable(Bluetooth::emulatorDeath()), seconds);
        return NoVerdict;
    }
    std::printf("  %s: %s after %.1f s\n", scene.name, Expect::failures() ? "FAILED" : "passed", seconds);
    return Expect::failures() ? Failed : Passed;
}

} // namespace

QString Scenes::version()
{
    return daemonVersion;
}

int main(int argc, char** argv)
{
    QCoreApplication program(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    parser.addOptions({{"list", "Print the scenes."},
                       {"names", "Print the names of the scenes that run always."},
                       {"all", "With --names: also of those that take long."},
                       {"scene", "Run this one.", "NAME"},
                       {"bluez", "The daemon's version, 5.66 or 5.82.", "VERSION"},
                       {"device", "Use this controller of the machine for the peripheral.", "NAME"},
                       {"phone", "Use this controller of the machine for the phone.", "NAME"},
                       {"logs", "The folder for logs.", "DIR", "."}});
    parser.process(program);
    daemonVersion = parser.value("bluez");
    Child::setLogs(parser.value("logs"));
    if (parser.isSet("device") || parser.isSet("phone")) {
        Bluetooth::useMachine(parser.value("device"), parser.value("phone"));
    }
    for (const Scene& scene : scenes) {
        if (parser.isSet("list")) {
            std::printf("%-13s %s\n", scene.name, scene.shows);
        } else if (parser.isSet("names") &&
                   (scene.when == Always || (scene.when == Long && parser.isSet("all")))) {
            std::printf("%s\n", scene.name);
        } else if (parser.value("scene") == scene.name) {
            return run(scene);
        }
    }
    if (parser.isSet("scene")) {
        std::fprintf(stderr, "daemon-scenes: there is no scene \"%s\"\n", qPrintable(parser.value("scene")));
        return WrongUsage;
    }
    return 0;
}
