#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <vector>

/** Throws if the result is negative, and returns it otherwise. */
int check(int result, const std::string& what);

using Message = std::unique_ptr<sd_bus_message, decltype(&sd_bus_message_unref)>;

/** Appends the arguments of a call. */
using Arguments = std::function<void(sd_bus_message*)>;

/** Time that only goes forward, in seconds. */
double now();

/** A server on the private bus, as seen from the load generator; it gets a processor of its own if there are
 * two. */
class Server
{
public:
    /** @param name  its bus name */
    explicit Server(const std::string& name);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /** A method call to the server, ready to be sent. */
    Message message(const std::string& path, const std::string& interface, const std::string& member,
                    const Arguments& arguments) const;
    /** Sends and waits for the answer. */
    Message call(const Message& message) const;
    /** Tells the server what to do. */
    Message control(
        const std::string& member, const Arguments& arguments = [](sd_bus_message*) {}) const;
    /** Sends so many calls, some of them at a time, and waits for all answers. */
    void callMany(const std::function<Message()>& make, unsigned count, unsigned atATime) const;
    /** Counts the PropertiesChanged signals of a path. */
    void countNotifications(const std::string& path);
    /** Waits until that many have been counted since the start. */
    void awaitNotifications(std::uint64_t count) const;

    /** Seconds of processor time that the server and the bus daemon have taken so far. */
    double serverTime() const;
    double busTime() const;

    /** The connection to the bus. */
    sd_bus* bus() const { return m_bus; }
    const std::string& name() const { return m_name; }

private:
    pid_t processOf(const std::string& name) const;
    void step() const;

    sd_bus* m_bus = nullptr;
    std::string m_name;
    clockid_t m_serverClock{};
    clockid_t m_busClock{};
    std::uint64_t m_notifications = 0;
};
