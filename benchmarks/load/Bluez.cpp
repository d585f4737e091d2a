#include "Bluez.h"

#include "Server.h"

#include <array>
#include <cstdint>
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

/** The server's answer to AcquireNotify. */
struct Answer
{
    bool isThere = false;
    int socket = -1; ///< negative after a refusal
};

int takeSocket(sd_bus_message* reply, void* userdata, sd_bus_error*)
{
    auto* answer = static_cast<Answer*>(userdata);
    answer->isThere = true;
    int theirs = -1;
    if (!sd_bus_message_is_method_error(reply, nullptr) && sd_bus_message_read(reply, "h", &theirs) > 0) {
        answer->socket = fcntl(theirs, F_DUPFD_CLOEXEC, 0);
    }
    return 0;
}

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

/** The server asks for BlueZ's objects before it answers, so this does not block. */
void Bluez::subscribe(const std::string& server, const std::string& path)
{
    Answer answer;
    check(sd_bus_call_method_async(m_bus, nullptr, server.c_str(), path.c_str(),
                                   "org.bluez.GattCharacteristic1", "AcquireNotify", takeSocket, &answer,
                                   "a{sv}", 3, "device", "o", centralPath, "mtu", "q", 517, "link", "s",
                                   "LE"),
          "AcquireNotify");
    while (!answer.isThere) {
        if (check(sd_bus_process(m_bus, nullptr), "bus") == 0) {
            check(sd_bus_wait(m_bus, UINT64_MAX), "bus");
        }
    }
    if (answer.socket < 0) {
        throw std::runtime_error("the server gives no socket");
    }
    m_socket = answer.socket;
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
