#pragma once

#include <systemd/sd-bus.h>

#include <cstddef>
#include <string>

/** D-Bus messages as text, with every signature as it was on the wire. */
namespace WireText {

/** The length of the complete type that begins at a position of a signature. */
std::size_t firstType(const std::string& signature, std::size_t at);

/** A JSON string. */
std::string quoted(const std::string& text);

/**
 * One JSON object: id, type ("method_return", "error" or "signal"), sender, path, interface, member,
 * signature, errorName, errorText, body and text.
 *
 * The body is an array of values: byte arrays as hexadecimal digits, other arrays as arrays, dictionaries as
 * arrays of [key, value] in the order on the wire, variants as {"signature": …, "value": …}, 64-bit integers
 * as strings. The text is the same for eyes: [element, …], {key: value, …}, (member, …), <signature value>.
 */
std::string message(sd_bus_message* message, const std::string& id);

} // namespace WireText
