#include "Bus.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace attacker {

namespace {

constexpr std::uint64_t patienceUs = 100000000;

} // namespace

int check(int result, const char* what)
{
    if (result < 0) {
        throw std::runtime_error(std::string(what) + ": " + std::strerror(-result));
    }
    return result;
}

struct Bus::Pending
{
    Bus* bus;
    Answer answer;
    std::chrono::steady_clock::time_point sent;
    std::list<Pending>::iterator place;
};

Bus::Bus(const std::string& destination) : m_destination(destination)
{
    check(sd_bus_open_system(&m_bus), "connect to $DBUS_SYSTEM_BUS_ADDRESS");
}

Bus::~Bus()
{
    sd_bus_flush_close_unref(m_bus);
}

sd_bus_message* Bus::build(const Call& call)
{
    sd_bus_message* message = nullptr;
    const char* interface = call.interface.empty() ? nullptr : call.interface.c_str();
    check(sd_bus_message_new_method_call(m_bus, &message, m_destination.c_str(), call.path.c_str(), interface,
                                         call.member.c_str()),
          "make a call");
    call.append(message);
    return message;
}

void Bus::send(const Call& call, const Answer& answer)
{
    drainTo(inFlightLimit - 1);
    sd_bus_message* message = build(call);
    Pending pending{this, answer, std::chrono::steady_clock::now(), m_pending.end()};
    m_pending.push_front(pending);
    m_pending.front().place = m_pending.begin();
    check(sd_bus_call_async(m_bus, nullptr, message, onAnswer, &m_pending.front(), patienceUs), "send");
    sd_bus_message_unref(message);
}

sd_bus_message* Bus::ask(const Call& call)
{
    sd_bus_message* received = nullptr;
    send(call, [&received](sd_bus_message* message) { received = sd_bus_message_ref(message); });
    until([&received] { return received != nullptr; });
    return received;
}

void Bus::tell(const Call& call)
{
    sd_bus_message* message = build(call);
    check(sd_bus_message_set_expect_reply(message, 0), "want no answer");
    check(sd_bus_send(m_bus, message, nullptr), "send");
    sd_bus_message_unref(message);
}

void Bus::match(const std::string& rule, const Answer& onSignalArrived)
{
    m_onSignal = onSignalArrived;
    check(sd_bus_add_match(m_bus, nullptr, rule.c_str(), onSignal, this), "match");
}

int Bus::onAnswer(sd_bus_message* message, void* data, sd_bus_error* /*error*/)
{
    auto* pending = static_cast<Pending*>(data);
    Bus& bus = *pending->bus;
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - pending->sent;
    bus.slowest = std::max(bus.slowest, taken.count());
    ++bus.answers;
    if (sd_bus_message_is_method_error(message, nullptr)) {
        ++bus.errors;
        // What the bus, or sd-bus here, says in the place of a peripheral that has not answered.
        for (const char* name : {SD_BUS_ERROR_NO_REPLY, SD_BUS_ERROR_TIMEOUT, SD_BUS_ERROR_DISCONNECTED,
                                 SD_BUS_ERROR_SERVICE_UNKNOWN, SD_BUS_ERROR_NAME_HAS_NO_OWNER}) {
            bus.unanswered += sd_bus_message_is_method_error(message, name) ? 1 : 0;
        }
    }
    const Answer answer = pending->answer;
    bus.m_pending.erase(pending->place);
    if (answer) {
        answer(message);
    }
    return 0;
}

int Bus::onSignal(sd_bus_message* message, void* data, sd_bus_error* /*error*/)
{
    static_cast<Bus*>(data)->m_onSignal(message);
    return 0;
}

void Bus::step()
{
    if (check(sd_bus_process(m_bus, nullptr), "process") == 0) {
        check(sd_bus_wait(m_bus, patienceUs), "wait");
    }
}

void Bus::until(const std::function<bool()>& condition)
{
    while (!condition()) {
        step();
    }
}

void Bus::drainTo(std::size_t count)
{
    until([this, count] { return m_pending.size() <= count; });
}

void Bus::flush()
{
    check(sd_bus_flush(m_bus), "flush");
}

void Bus::vanish()
{
    sd_bus_close(m_bus);
}

} // namespace attacker
