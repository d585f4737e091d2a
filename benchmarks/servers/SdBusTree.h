#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>
#include <deque>
#include <stdexcept>
#include <string>
#include <vector>

/** Throws if the result is negative, and returns it otherwise. */
inline int check(int result, const char* what)
{
    if (result < 0) {
        throw std::runtime_error(std::string(what) + " failed: " + std::to_string(result));
    }
    return result;
}

/** One object that sd-bus serves; its vtable answers from these members. */
struct SdBusObject
{
    std::string path;
    std::string uuid;
    std::string parent;
    std::vector<std::uint8_t> value;
    int notifying = 0; // sd-bus reads a boolean as an int
};

/** One service with characteristics below a root that has an object manager. */
class SdBusTree
{
public:
    SdBusTree(sd_bus* bus, std::string root);
    ~SdBusTree();
    SdBusTree(const SdBusTree&) = delete;
    SdBusTree& operator=(const SdBusTree&) = delete;

    const std::string& root() const { return m_root; }

    /** Adds service 0. */
    void addService();
    /** Adds a characteristic of service 0, with a value of that many bytes. */
    SdBusObject& addCharacteristic(unsigned number, unsigned bytes);
    /** Adds another service, a descriptor of characteristic 0, or an advertisement. */
    void add(const std::string& what, unsigned number);

private:
    SdBusObject& serve(SdBusObject object, const char* interface, const sd_bus_vtable* vtable);

    sd_bus* m_bus;
    std::string m_root;
    std::deque<SdBusObject> m_objects; // stay where they are
    std::vector<sd_bus_slot*> m_slots;
};
