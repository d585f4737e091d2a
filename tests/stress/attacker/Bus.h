#pragma once

#include <systemd/sd-bus.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <list>
#include <string>

namespace attacker {

/** A method call; append adds its arguments. */
struct Call
{
    std::string path;
    std::string interface;
    std::string member;
    std::function<void(sd_bus_message*)> append = [](sd_bus_message*) {};
};

/**
 * A client of the bus at $DBUS_SYSTEM_BUS_ADDRESS made with sd-bus, that keeps many calls in flight and
 * measures how long each answer takes. Every failure of the bus itself is an exception.
 */
class Bus
{
public:
    using Answer = std::function<void(sd_bus_message*)>;

    /** @param destination  where all calls go */
    explicit Bus(const std::string& destination);
    ~Bus();
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    /** Sends, once fewer than the limit are in flight. */
    void send(const Call& call, const Answer& answer = {});
    /** Sends and waits. @return the answer, owned by the caller */
    sd_bus_message* ask(const Call& call);
    /** Sends a call that wants no answer. */
    void tell(const Call& call);
    void match(const std::string& rule, const Answer& onSignal);
    /** Waits until nothing is in flight. */
    void drain() { drainTo(0); }
    /** Handles what arrives until the condition holds. */
    void until(const std::function<bool()>& condition);
    /** Leaves the bus at once, whatever is in flight. */
    void vanish();
    void flush();
    const std::string& destination() const { return m_destination; }

    std::size_t inFlightLimit = 64;

    // What has been measured so far.
    long answers = 0;
    long errors = 0;     ///< answers that were errors
    long unanswered = 0; ///< calls that only a time-out ended
    double slowest = 0;  ///< seconds between sending a call and its answer

private:
    struct Pending;
    static int onAnswer(sd_bus_message* message, void* data, sd_bus_error* error);
    static int onSignal(sd_bus_message* message, void* data, sd_bus_error* error);
    sd_bus_message* build(const Call& call);
    void drainTo(std::size_t count);
    void step();

    sd_bus* m_bus = nullptr;
    std::string m_destination;
    std::list<Pending> m_pending;
    Answer m_onSignal;
};

/** Throws with what was tried if the result is negative, and returns it otherwise. */
int check(int result, const char* what);

} // namespace attacker
