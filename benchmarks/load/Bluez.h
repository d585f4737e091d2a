#pragma once

#include <systemd/sd-bus.h>

#include <string>

/** Plays BlueZ 5.82 with one connected central, for a server that gives it a socket. */
class Bluez
{
public:
    /** Takes BlueZ's bus name. @param bus  outlives this object */
    explicit Bluez(sd_bus* bus);
    ~Bluez();
    Bluez(const Bluez&) = delete;
    Bluez& operator=(const Bluez&) = delete;

    /** Subscribes to a characteristic, and gets a socket for the notifications. */
    void subscribe(const std::string& server, const std::string& path);
    /** Reads so many notifications, which have all been sent. Throws if one of them is not there. */
    void read(unsigned count) const;

private:
    sd_bus* m_bus;
    int m_socket = -1;
};
