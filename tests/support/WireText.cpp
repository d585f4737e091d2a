#include "WireText.h"

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace {

/** One value as JSON and for eyes. */
struct Value
{
    std::string json;
    std::string text;
};

using Values = std::vector<Value>;

void check(int result, const char* what)
{
    if (result < 0) {
        throw std::runtime_error(std::string(what) + ": " + std::strerror(-result));
    }
}

std::string joined(const Values& values, std::string Value::*part, const char* separator)
{
    std::string text;
    for (const Value& value : values) {
        text += (text.empty() ? "" : separator) + value.*part;
    }
    return text;
}

std::string hex(const void* data, std::size_t size)
{
    static const char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * size);
    for (std::size_t i = 0; i < size; ++i) {
        const std::uint8_t byte = static_cast<const std::uint8_t*>(data)[i];
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

Values read(sd_bus_message* message, const std::string& signature);
Value readOne(sd_bus_message* message, const std::string& type);

Value readBytes(sd_bus_message* message)
{
    const void* data = nullptr;
    std::size_t size = 0;
    check(sd_bus_message_read_array(message, 'y', &data, &size), "read bytes");
    const std::string digits = hex(data, size);
    return {WireText::quoted(digits), '[' + digits + ']'};
}

Value readArray(sd_bus_message* message, const std::string& element)
{
    if (element == "y") {
        return readBytes(message);
    }
    const bool dictionary = element[0] == '{';
    Values values;
    check(sd_bus_message_enter_container(message, 'a', element.c_str()), "enter array");
    while (sd_bus_message_at_end(message, 0) == 0) {
        values.push_back(readOne(message, element));
    }
    check(sd_bus_message_exit_container(message), "exit array");
    const std::string text = joined(values, &Value::text, ", ");
    return {'[' + joined(values, &Value::json, ",") + ']', dictionary ? '{' + text + '}' : '[' + text + ']'};
}

Values readContainer(sd_bus_message* message, char type, const std::string& contents)
{
    check(sd_bus_message_enter_container(message, type, contents.c_str()), "enter container");
    Values values = read(message, contents);
    check(sd_bus_message_exit_container(message), "exit container");
    return values;
}

Value readVariant(sd_bus_message* message)
{
    char type = 0;
    const char* contents = nullptr;
    check(sd_bus_message_peek_type(message, &type, &contents), "look at variant");
    const std::string signature = contents;
    const Values values = readContainer(message, 'v', signature);
    return {"{\"signature\":\"" + signature + "\",\"value\":" + values.at(0).json + '}',
            '<' + signature + ' ' + values.at(0).text + '>'};
}

template <typename Integer>
std::string number(const void* value)
{
    return std::to_string(*static_cast<const Integer*>(value));
}

Value readBasic(sd_bus_message* message, char type)
{
    union {
        std::uint64_t storage;
        double real;
        const char* text;
    } value = {};
    check(sd_bus_message_read_basic(message, type, &value), "read");
    std::string text;
    switch (type) {
    case 'y':
        text = number<std::uint8_t>(&value);
        break;
    case 'b':
        text = number<int>(&value) == "0" ? "false" : "true";
        break;
    case 'n':
        text = number<std::int16_t>(&value);
        break;
    case 'q':
        text = number<std::uint16_t>(&value);
        break;
    case 'i':
        text = number<std::int32_t>(&value);
        break;
    case 'u':
        text = number<std::uint32_t>(&value);
        break;
    case 'd':
        text = number<double>(&value);
        break;
    case 'x':
        text = number<std::int64_t>(&value);
        return {WireText::quoted(text), text};
    case 't':
        text = number<std::uint64_t>(&value);
        return {WireText::quoted(text), text};
    case 'h':
        text = "\"open\"";
        break;
    default:
        text = WireText::quoted(value.text);
    }
    return {text, text};
}

Value readOne(sd_bus_message* message, const std::string& type)
{
    switch (type[0]) {
    case 'a':
        return readArray(message, type.substr(1));
    case '(': {
        const Values values = readContainer(message, 'r', type.substr(1, type.size() - 2));
        return {'[' + joined(values, &Value::json, ",") + ']',
                '(' + joined(values, &Value::text, ", ") + ')'};
    }
    case '{': {
        const Values values = readContainer(message, 'e', type.substr(1, type.size() - 2));
        return {'[' + joined(values, &Value::json, ",") + ']', joined(values, &Value::text, ": ")};
    }
    case 'v':
        return readVariant(message);
    default:
        return readBasic(message, type[0]);
    }
}

Values read(sd_bus_message* message, const std::string& signature)
{
    Values values;
    for (std::size_t at = 0; at < signature.size();) {
        const std::size_t length = WireText::firstType(signature, at);
        values.push_back(readOne(message, signature.substr(at, length)));
        at += length;
    }
    return values;
}

std::string member(const char* key, const char* text)
{
    return std::string(",\"") + key + "\":" + WireText::quoted(text ? text : "");
}

const char* typeName(sd_bus_message* message)
{
    std::uint8_t type = 0;
    check(sd_bus_message_get_type(message, &type), "type");
    switch (type) {
    case SD_BUS_MESSAGE_METHOD_RETURN:
        return "method_return";
    case SD_BUS_MESSAGE_METHOD_ERROR:
        return "error";
    case SD_BUS_MESSAGE_SIGNAL:
        return "signal";
    default:
        return "method_call";
    }
}

} // namespace

std::size_t WireText::firstType(const std::string& signature, std::size_t at)
{
    std::size_t end = at;
    while (signature.at(end) == 'a') {
        ++end;
    }
    int depth = 0;
    do {
        const char c = signature.at(end++);
        depth += (c == '(' || c == '{') - (c == ')' || c == '}');
    } while (depth > 0);
    return end - at;
}

std::string WireText::quoted(const std::string& text)
{
    std::string json = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            json += '\\';
            json += c;
        } else if (std::uint8_t(c) < 0x20) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", unsigned(c));
            json += escape;
        } else {
            json += c;
        }
    }
    return json + '"';
}

std::string WireText::message(sd_bus_message* message, const std::string& id)
{
    const std::string signature = sd_bus_message_get_signature(message, 1);
    const Values values = read(message, signature);
    const sd_bus_error* error = sd_bus_message_get_error(message);
    return "{\"id\":" + id + ",\"type\":\"" + typeName(message) + '"' +
           member("sender", sd_bus_message_get_sender(message)) +
           member("path", sd_bus_message_get_path(message)) +
           member("interface", sd_bus_message_get_interface(message)) +
           member("member", sd_bus_message_get_member(message)) + member("signature", signature.c_str()) +
           member("errorName", error ? error->name : "") + member("errorText", error ? error->message : "") +
           ",\"body\":[" + joined(values, &Value::json, ",") + "]" +
           member("text", joined(values, &Value::text, ", ").c_str()) + '}';
}
