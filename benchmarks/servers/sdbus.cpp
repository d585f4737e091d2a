// The floor of the bus: the same interfaces served by sd-bus.

#include "Layout.h"
#include "Meter.h"
#include "SdBusTree.h"

#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <poll.h>
#include <unistd.h>

namespace {

using Done = std::function<void()>;

class SdBusServer
{
public:
    explicit SdBusServer(sd_bus* bus);
    void run();
    void startUp();
    int control(sd_bus_message* call);

private:
    void notify(std::size_t bytes, unsigned count);
    void grow(const std::string& root, unsigned characteristics);
    Meter::Costs build(const std::string& what, unsigned count);
    void call(const char* manager, const char* method, const Done& done);
    void advertise(const Done& done);
    void burst(unsigned changes, const Done& done);
    int build(sd_bus_message* call);

    sd_bus* m_bus;
    SdBusTree m_small;
    SdBusObject* m_notifying = nullptr;
    std::unique_ptr<SdBusTree> m_tree;
    std::unique_ptr<SdBusTree> m_advertisement;
    bool m_ended = false;
};

int onAnswer(sd_bus_message* /*reply*/, void* data, sd_bus_error* /*error*/)
{
    const std::unique_ptr<Done> done(static_cast<Done*>(data));
    (*done)();
    return 0;
}

int onControl(sd_bus_message* call, void* data, sd_bus_error* /*error*/)
{
    return static_cast<SdBusServer*>(data)->control(call);
}

const sd_bus_vtable controlTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Mark", "s", "", onControl, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Notify", "uu", "", onControl, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Grow", "su", "", onControl, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Shrink", "", "", onControl, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Build", "su", "ttt", onControl, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Register", "", "", onControl, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Unregister", "", "", onControl, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Advertise", "", "", onControl, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Burst", "u", "", onControl, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

SdBusServer::SdBusServer(sd_bus* bus) : m_bus(bus), m_small(bus, Layout::root)
{
    m_small.addService();
    for (unsigned i = Layout::Value20; i < Layout::CharacteristicEnd; ++i) {
        // The page that is read is ready.
        SdBusObject& added = m_small.addCharacteristic(i, std::min(Layout::valueSize(i), 512U));
        if (i == Layout::Notifying) {
            m_notifying = &added;
        }
    }
}

void SdBusServer::notify(std::size_t bytes, unsigned count)
{
    m_notifying->value.resize(bytes);
    for (unsigned i = 0; i < count; ++i) {
        m_notifying->value[0] = std::uint8_t(i);
        check(sd_bus_emit_properties_changed(m_bus, m_notifying->path.c_str(),
                                             "org.bluez.GattCharacteristic1", "Value", nullptr),
              "notification");
    }
}

void SdBusServer::grow(const std::string& root, unsigned characteristics)
{
    m_tree = std::make_unique<SdBusTree>(m_bus, root);
    m_tree->addService();
    for (unsigned i = 1; i <= characteristics; ++i) {
        m_tree->addCharacteristic(i, 0);
    }
}

Meter::Costs SdBusServer::build(const std::string& what, unsigned count)
{
    const std::string root = "/com/example/build";
    if (what == "tree") {
        return Meter::costs([&] { grow(root, count); }, [&] { m_tree.reset(); }, [] {});
    }
    auto tree = std::make_unique<SdBusTree>(m_bus, root);
    const auto build = [&] {
        for (unsigned i = 1; i <= count; ++i) {
            tree->add(what, i);
        }
    };
    return Meter::costs(
        build, [&] { tree.reset(); }, [] {});
}

int SdBusServer::build(sd_bus_message* call)
{
    const char* what = nullptr;
    unsigned count = 0;
    check(sd_bus_message_read(call, "su", &what, &count), "Build");
    const Meter::Costs costs = build(what, count);
    return sd_bus_reply_method_return(call, "ttt", costs.build, costs.destroy, costs.heap);
}

/** An asynchronous call to the daemon about the tree or the advertisement. */
void SdBusServer::call(const char* manager, const char* method, const Done& done)
{
    const std::string interface = std::string("org.bluez.") + manager;
    const bool isApplication = std::strcmp(manager, "GattManager1") == 0;
    const std::string path = isApplication ? m_tree->root() : "/com/example/a1";
    sd_bus_message* message = nullptr;
    check(sd_bus_message_new_method_call(m_bus, &message, "org.bluez", "/org/bluez/hci0", interface.c_str(),
                                         method),
          method);
    check(sd_bus_message_append(message, "o", path.c_str()), method);
    if (std::strncmp(method, "Register", 8) == 0) {
        check(sd_bus_message_append(message, "a{sv}", 0), method);
    }
    check(sd_bus_call_async(m_bus, nullptr, message, onAnswer, new Done(done), 0), method);
    sd_bus_message_unref(message);
}

void SdBusServer::advertise(const Done& done)
{
    if (!m_advertisement) {
        m_advertisement = std::make_unique<SdBusTree>(m_bus, "/com/example");
        m_advertisement->add("advertisement", 1);
    }
    call("LEAdvertisingManager1", "RegisterAdvertisement", done);
}

void SdBusServer::burst(unsigned changes, const Done& done)
{
    const auto left = std::make_shared<unsigned>(2 * changes);
    const auto countDown = [left, done] {
        if (--*left == 0) {
            done();
        }
    };
    for (unsigned i = 0; i < changes; ++i) {
        call("LEAdvertisingManager1", "UnregisterAdvertisement", countDown);
        call("LEAdvertisingManager1", "RegisterAdvertisement", countDown);
    }
}

int SdBusServer::control(sd_bus_message* call)
{
    const std::string member = sd_bus_message_get_member(call);
    const char* text = nullptr;
    unsigned number = 0;
    unsigned count = 0;
    const auto reply = [call] { return sd_bus_reply_method_return(call, ""); };
    sd_bus_message_ref(call);
    const Done later = [call, reply] {
        reply();
        sd_bus_message_unref(call);
    };
    if (member == "Register") {
        this->call("GattManager1", "RegisterApplication", later);
        return 1;
    }
    if (member == "Unregister") {
        this->call("GattManager1", "UnregisterApplication", later);
        return 1;
    }
    if (member == "Advertise") {
        advertise(later);
        return 1;
    }
    if (member == "Burst") {
        check(sd_bus_message_read(call, "u", &number), "Burst");
        burst(number, later);
        return 1;
    }
    sd_bus_message_unref(call);
    if (member == "Build") {
        return build(call);
    }
    if (member == "Mark") {
        check(sd_bus_message_read(call, "s", &text), "Mark");
        Meter::mark(text);
    } else if (member == "Notify") {
        check(sd_bus_message_read(call, "uu", &number, &count), "Notify");
        notify(number, count);
    } else if (member == "Grow") {
        check(sd_bus_message_read(call, "su", &text, &number), "Grow");
        grow(text, number);
    } else {
        m_tree.reset();
    }
    return reply();
}

void SdBusServer::startUp()
{
    grow("/com/example/start", 10);
    call("GattManager1", "RegisterApplication", [this] { advertise([this] { m_ended = true; }); });
}

/** Serves until startUp() has been done or standard input ends. */
void SdBusServer::run()
{
    while (!m_ended) {
        while (check(sd_bus_process(m_bus, nullptr), "process") > 0) {
        }
        check(sd_bus_flush(m_bus), "flush");
        if (!m_ended) {
            pollfd both[] = {{sd_bus_get_fd(m_bus), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
            check(poll(both, 2, -1), "poll");
            m_ended = both[1].revents != 0;
        }
    }
}

} // namespace

int main(int argc, char** argv)
try {
    sd_bus* bus = nullptr;
    check(sd_bus_open_system(&bus), "bus");
    SdBusServer server(bus);
    check(sd_bus_add_object_vtable(bus, nullptr, Layout::controlPath.c_str(),
                                   Layout::controlInterface.c_str(), controlTable, &server),
          "control");
    if (argc > 1 && std::strcmp(argv[1], "--startup") == 0) {
        server.startUp();
    } else {
        check(sd_bus_request_name(bus, "org.example.Bench.SdBus", 0), "name");
        std::puts("ready");
        std::fflush(stdout);
    }
    server.run();
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
