#pragma once

#include <string>

/** What all servers of the benchmark offer, and the load generator calls: the same names in each of them. */
namespace Layout {

/** The root of the tree that is always there: one service with the characteristics below. */
const std::string root = "/com/example/bench";

/** Characteristics of that tree, by their number. */
enum Characteristic : unsigned
{
    Value20 = 1, ///< 20 bytes from a member
    Value512,    ///< 512 bytes from a member
    Callback20,  ///< 20 bytes from a read callback
    Callback512, ///< 512 bytes from a read callback
    Paged,       ///< 1,300 bytes, read by pages of 512
    Control,     ///< selects the page
    Notifying,   ///< notifies when told to
    CharacteristicEnd
};

/** The size of a characteristic's value in bytes. */
unsigned valueSize(unsigned characteristic);

/** A 128-bit UUID for a number. */
std::string uuid(unsigned number);

/** The path of service 0 below a root. */
std::string servicePath(const std::string& root);

/** The path of a characteristic of that service. */
std::string characteristicPath(const std::string& root, unsigned number);

/** The object and the interface by which the load generator tells a server what to do. */
const std::string controlPath = "/control";
const std::string controlInterface = "org.example.Bench";

} // namespace Layout
