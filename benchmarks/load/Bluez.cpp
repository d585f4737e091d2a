#include "Bluez.h"

#include "Server.h"

#include <array>
#include <stdexcept>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

const char adapterPath[] = "/org/bluez/hci0";
const char centralPath[] = "/org/bluez/hci0/dev_00_AA_01_00_00_42";

int getModalias(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void*, sd_bus_error*)
{
    return sd_bus_message_append(reply, "s", "usb:v1D6Bp0246d0552");
}

int getConnected(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void*, sd_bus_error*)
{
    return sd_bus_message_append(reply, "b", 1);
}

const sd_bus_vtable adapterTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("Modalias", "s", getModalias, 0, 0),
    SD_BUS_VTABLE_END,
};

const sd_bus_vtable deviceTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("Connected", "b", getConnected, 0, 0),
    SD_BUS_VTABLE_END,
};

} // namespace

Bluez::Bluez(sd_bus* bus) : m_bus(bus)
{
    check(sd_bus_add_object_manager(bus, nullptr, "/"), "object manager");
    check(sd_bus_add_object_vtable(bus, nullptr, adapterPath, "org.bluez.Adapter1", adapterTable, nullptr),
          "adapter");
    check(sd_bus_add_object_vtable(bus, nullptr, centralPath, "org.bluez.Device1", deviceTable, nullptr),
          "central");
    check(sd_bus_request_name(bus, "org.bluez", 0), "the name org.bluez");
}

Bluez::~Bluez()
{
    if (m_socket >= 0) {
        close(m_socket);
    }
}

void Bluez::subscribe(const std::string& server, const std::string& path)
{
    constexpr int attempts = 1000;
    for (int i = 0; i < attempts; ++i) {
        // The server gives no socket before it knows the adapter.
        while (check(sd_bus_process(m_bus, nullptr), "bus") > 0) {
        }
        if (acquire(server, path)) {
            return;
        }
        check(sd_bus_wait(m_bus, 20'000), "bus");
    }
    throw std::runtime_error("the server gives no socket");
}

bool Bluez::acquire(const std::string& server, const std::string& path)
{
    sd_bus_message* reply = nullptr;
    const int result = sd_bus_call_method(
        m_bus, server.c_str(), path.c_str(), "org.bluez.GattCharacteristic1", "AcquireNotify", nullptr,
        &reply, "a{sv}", 3, "device", "o", centralPath, "mtu", "q", 517, "link", "s", "LE");
    if (result < 0) {
        return false;
    }
    int theirs = -1;
    check(sd_bus_message_read(reply, "h", &theirs), "AcquireNotify");
    m_socket = fcntl(theirs, F_DUPFD_CLOEXEC, 0);
    sd_bus_message_unref(reply);
    return m_socket >= 0;
}

void Bluez::read(unsigned count) const
{
    std::array<char, 512> packet;
    for (unsigned i = 0; i < count; ++i) {
        if (recv(m_socket, packet.data(), packet.size(), MSG_DONTWAIT) <= 0) {
            throw std::runtime_error("a notification is missing");
        }
    }
}
