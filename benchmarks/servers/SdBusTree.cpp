#include "SdBusTree.h"

#include "Layout.h"

#include <algorithm>

namespace {

SdBusObject& object(void* data)
{
    return *static_cast<SdBusObject*>(data);
}

int readValue(sd_bus_message* call, void* data, sd_bus_error* /*error*/)
{
    const auto& value = object(data).value;
    sd_bus_message* reply = nullptr;
    check(sd_bus_message_skip(call, "a{sv}"), "skip");
    check(sd_bus_message_new_method_return(call, &reply), "reply");
    check(sd_bus_message_append_array(reply, 'y', value.data(), value.size()), "append");
    const int sent = sd_bus_send(nullptr, reply, nullptr);
    sd_bus_message_unref(reply);
    return sent;
}

int writeValue(sd_bus_message* call, void* data, sd_bus_error* /*error*/)
{
    const void* bytes = nullptr;
    std::size_t size = 0;
    check(sd_bus_message_read_array(call, 'y', &bytes, &size), "read");
    check(sd_bus_message_skip(call, "a{sv}"), "skip");
    const auto* begin = static_cast<const std::uint8_t*>(bytes);
    object(data).value.assign(begin, begin + size);
    return sd_bus_reply_method_return(call, "");
}

int nothing(sd_bus_message* call, void* /*data*/, sd_bus_error* /*error*/)
{
    return sd_bus_reply_method_return(call, "");
}

int getValue(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/, const char* /*property*/,
             sd_bus_message* reply, void* data, sd_bus_error* /*error*/)
{
    const auto& value = object(data).value;
    return sd_bus_message_append_array(reply, 'y', value.data(), value.size());
}

int getUuid(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/, const char* /*property*/,
            sd_bus_message* reply, void* data, sd_bus_error* /*error*/)
{
    return sd_bus_message_append(reply, "s", object(data).uuid.c_str());
}

int getParent(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/, const char* /*property*/,
              sd_bus_message* reply, void* data, sd_bus_error* /*error*/)
{
    return sd_bus_message_append(reply, "o", object(data).parent.c_str());
}

int getFlags(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/, const char* /*property*/,
             sd_bus_message* reply, void* /*data*/, sd_bus_error* /*error*/)
{
    return sd_bus_message_append(reply, "as", 3, "read", "write", "notify");
}

int getType(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/, const char* /*property*/,
            sd_bus_message* reply, void* /*data*/, sd_bus_error* /*error*/)
{
    return sd_bus_message_append(reply, "s", "peripheral");
}

int getTrue(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/, const char* /*property*/,
            sd_bus_message* reply, void* /*data*/, sd_bus_error* /*error*/)
{
    return sd_bus_message_append(reply, "b", 1);
}

const sd_bus_vtable serviceTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("Primary", "b", getTrue, 0, 0),
    SD_BUS_PROPERTY("UUID", "s", getUuid, 0, 0),
    SD_BUS_VTABLE_END,
};

const sd_bus_vtable characteristicTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("ReadValue", "a{sv}", "ay", readValue, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("WriteValue", "aya{sv}", "", writeValue, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("StartNotify", "", "", nothing, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("StopNotify", "", "", nothing, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Confirm", "", "", nothing, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_PROPERTY("Flags", "as", getFlags, 0, 0),
    SD_BUS_PROPERTY("Notifying", "b", nullptr, offsetof(SdBusObject, notifying), 0),
    SD_BUS_PROPERTY("Service", "o", getParent, 0, 0),
    SD_BUS_PROPERTY("UUID", "s", getUuid, 0, 0),
    SD_BUS_PROPERTY("Value", "ay", getValue, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_VTABLE_END,
};

const sd_bus_vtable descriptorTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("ReadValue", "a{sv}", "ay", readValue, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("WriteValue", "aya{sv}", "", writeValue, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_PROPERTY("Characteristic", "o", getParent, 0, 0),
    SD_BUS_PROPERTY("Flags", "as", getFlags, 0, 0),
    SD_BUS_PROPERTY("UUID", "s", getUuid, 0, 0),
    SD_BUS_PROPERTY("Value", "ay", getValue, 0, 0),
    SD_BUS_VTABLE_END,
};

const sd_bus_vtable advertisementTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Release", "", "", nothing, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_PROPERTY("Type", "s", getType, 0, 0),
    SD_BUS_PROPERTY("LocalName", "s", getUuid, 0, 0),
    SD_BUS_VTABLE_END,
};

} // namespace

SdBusTree::SdBusTree(sd_bus* bus, std::string root) : m_bus(bus), m_root(std::move(root))
{
    sd_bus_slot* slot = nullptr;
    check(sd_bus_add_object_manager(m_bus, &slot, m_root.c_str()), "object manager");
    m_slots.push_back(slot);
}

SdBusTree::~SdBusTree()
{
    for (sd_bus_slot* slot : m_slots) {
        sd_bus_slot_unref(slot);
    }
}

SdBusObject& SdBusTree::serve(SdBusObject object, const char* interface, const sd_bus_vtable* vtable)
{
    m_objects.push_back(std::move(object));
    SdBusObject& kept = m_objects.back();
    sd_bus_slot* slot = nullptr;
    check(sd_bus_add_object_vtable(m_bus, &slot, kept.path.c_str(), interface, vtable, &kept), "vtable");
    m_slots.push_back(slot);
    return kept;
}

void SdBusTree::addService()
{
    serve({Layout::servicePath(m_root), Layout::uuid(0), {}, {}}, "org.bluez.GattService1", serviceTable);
}

SdBusObject& SdBusTree::addCharacteristic(unsigned number, unsigned bytes)
{
    return serve({Layout::characteristicPath(m_root, number), Layout::uuid(number),
                  Layout::servicePath(m_root), std::vector<std::uint8_t>(bytes, 'v')},
                 "org.bluez.GattCharacteristic1", characteristicTable);
}

void SdBusTree::add(const std::string& what, unsigned number)
{
    std::string name = Layout::uuid(number);
    std::replace(name.begin(), name.end(), '-', '_');
    if (what == "service") {
        serve({m_root + '/' + name, Layout::uuid(number), {}, {}}, "org.bluez.GattService1", serviceTable);
    } else if (what == "descriptor") {
        const std::string parent = Layout::characteristicPath(m_root, 0);
        serve({parent + "/desc" + std::to_string(number), Layout::uuid(number), parent, {}},
              "org.bluez.GattDescriptor1", descriptorTable);
    } else if (what == "advertisement") {
        serve({m_root + "/a" + std::to_string(number), "Bench", {}, {}}, "org.bluez.LEAdvertisement1",
              advertisementTable);
    } else {
        addCharacteristic(number, 0);
    }
}
