#include "Server.h"

#include "../servers/Layout.h"

#include <filesystem>
#include <sched.h>
#include <stdexcept>
#include <unistd.h>
#include <vector>

namespace {

double secondsOf(clockid_t clock)
{
    timespec time{};
    check(clock_gettime(clock, &time), "clock_gettime");
    return double(time.tv_sec) + double(time.tv_nsec) * 1e-9;
}

/** The processors that this process may use. */
std::vector<unsigned> processors()
{
    cpu_set_t set;
    check(sched_getaffinity(0, sizeof set, &set), "sched_getaffinity");
    std::vector<unsigned> all;
    for (unsigned i = 0; i < CPU_SETSIZE; ++i) {
        if (CPU_ISSET(i, &set)) {
            all.push_back(i);
        }
    }
    return all;
}

/** Keeps all threads of a process on one processor. */
void pin(pid_t pid, unsigned processor)
{
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(processor, &set);
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
        check(sched_setaffinity(std::stoi(task.path().filename()), sizeof set, &set), "sched_setaffinity");
    }
}

/** The processor-time clock of a process. */
clockid_t clockOf(pid_t pid)
{
    clockid_t clock{};
    check(-clock_getcpuclockid(pid, &clock), "clock of process " + std::to_string(pid));
    return clock;
}

int onAnswer(sd_bus_message* reply, void* data, sd_bus_error* /*error*/)
{
    check(sd_bus_message_is_method_error(reply, nullptr) ? -1 : 0, "pipelined call");
    --*static_cast<unsigned*>(data);
    return 0;
}

int onNotification(sd_bus_message* /*signal*/, void* data, sd_bus_error* /*error*/)
{
    ++*static_cast<std::uint64_t*>(data);
    return 0;
}

} // namespace

int check(int result, const std::string& what)
{
    if (result < 0) {
        throw std::runtime_error(what + " failed: " + std::to_string(result));
    }
    return result;
}

double now()
{
    return secondsOf(CLOCK_MONOTONIC);
}

Server::Server(const std::string& name) : m_name(name)
{
    check(sd_bus_open_system(&m_bus), "connecting to the bus");
    check(sd_bus_set_method_call_timeout(m_bus, 600'000'000), "time-out");
    const pid_t server = processOf(name);
    const pid_t bus = processOf("org.freedesktop.DBus");
    m_serverClock = clockOf(server);
    m_busClock = clockOf(bus);
    // Where the scheduler happens to put threads that wake each other makes more of a difference than what is
    // measured: the server has one processor, the bus and its client have another.
    const auto all = processors();
    pin(server, all.back());
    pin(bus, all.front());
    pin(getpid(), all.front());
}

Server::~Server()
{
    sd_bus_flush_close_unref(m_bus);
}

/** The process that has a bus name; the bus daemon itself answers with its own. */
pid_t Server::processOf(const std::string& name) const
{
    sd_bus_message* reply = nullptr;
    unsigned pid = 0;
    check(sd_bus_call_method(m_bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                             "GetConnectionUnixProcessID", nullptr, &reply, "s", name.c_str()),
          "asking for the process of " + name);
    check(sd_bus_message_read(reply, "u", &pid), "reading the process of " + name);
    sd_bus_message_unref(reply);
    return pid_t(pid);
}

Message Server::message(const std::string& path, const std::string& interface, const std::string& member,
                        const Arguments& arguments) const
{
    sd_bus_message* call = nullptr;
    check(sd_bus_message_new_method_call(m_bus, &call, m_name.c_str(), path.c_str(), interface.c_str(),
                                         member.c_str()),
          member);
    arguments(call);
    return {call, &sd_bus_message_unref};
}

Message Server::call(const Message& message) const
{
    sd_bus_message* reply = nullptr;
    check(sd_bus_call(m_bus, message.get(), 0, nullptr, &reply), sd_bus_message_get_member(message.get()));
    return {reply, &sd_bus_message_unref};
}

Message Server::control(const std::string& member, const Arguments& arguments) const
{
    return call(message(Layout::controlPath, Layout::controlInterface, member, arguments));
}

void Server::callMany(const std::function<Message()>& make, unsigned count, unsigned atATime) const
{
    unsigned inFlight = 0;
    for (unsigned sent = 0; sent < count || inFlight > 0;) {
        if (sent < count && inFlight < atATime) {
            const Message next = make();
            check(sd_bus_call_async(m_bus, nullptr, next.get(), onAnswer, &inFlight, 0), "pipelined call");
            ++inFlight;
            ++sent;
        } else {
            step();
        }
    }
}

void Server::countNotifications(const std::string& path)
{
    check(sd_bus_match_signal(m_bus, nullptr, m_name.c_str(), path.c_str(), "org.freedesktop.DBus.Properties",
                              "PropertiesChanged", onNotification, &m_notifications),
          "subscribing");
}

void Server::awaitNotifications(std::uint64_t count) const
{
    while (m_notifications < count) {
        step();
    }
}

/** Handles one message, or waits for one. */
void Server::step() const
{
    if (check(sd_bus_process(m_bus, nullptr), "bus") == 0) {
        check(sd_bus_wait(m_bus, UINT64_MAX), "bus");
    }
}

double Server::serverTime() const
{
    return secondsOf(m_serverClock);
}

double Server::busTime() const
{
    return secondsOf(m_busClock);
}
