// A D-Bus client in a process of its own that tests drive: what the library puts on the wire is judged by
// sd-bus, an implementation of the protocol that shares no code with Qt's.
//
// Standard input, one request per line, fields separated by one blank, "%XX" for any other byte:
//
//   call ID FLAGS TIMEOUT-MS DESTINATION PATH INTERFACE MEMBER SIGNATURE ARGUMENT...
//   match ID RULE
//   own ID NAME
//   signal ID PATH INTERFACE MEMBER SIGNATURE ARGUMENT...
//
// FLAGS is "-" or "noreply". Arguments are flat as those of busctl: an array is its number of elements and
// the elements, a dictionary's elements being keys and values by turns, a variant its signature and the
// value; byte arrays are one field of hexadecimal digits. The interface may be empty.
//
// Standard output, one JSON object per line: first {"type":"ready","name":UNIQUE-NAME}, then in the order of
// arrival an answer for each ID and a message for each signal that a match asked for. It ends with its
// standard input.

#include "WireText.h"

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <sys/epoll.h>

#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Fields = std::vector<std::string>;

struct Client
{
    sd_event* loop = nullptr;
    sd_bus* bus = nullptr;
    std::string input;
};

int check(int result, const char* what)
{
    if (result < 0) {
        throw std::runtime_error(std::string(what) + ": " + std::strerror(-result));
    }
    return result;
}

std::string decoded(const std::string& field)
{
    std::string text;
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (field[i] == '%') {
            text += char(std::stoi(field.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            text += field[i];
        }
    }
    return text;
}

Fields split(const std::string& line)
{
    Fields fields;
    std::size_t begin = 0;
    for (std::size_t end = 0; end != std::string::npos; begin = end + 1) {
        end = line.find(' ', begin);
        fields.push_back(decoded(line.substr(begin, end == std::string::npos ? end : end - begin)));
    }
    return fields;
}

std::vector<std::uint8_t> bytesOf(const std::string& hex)
{
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes.push_back(std::uint8_t(std::stoi(hex.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

/** Appends arguments to a message, taking one field after the other. */
class Appender
{
public:
    Appender(sd_bus_message* message, const Fields& fields, std::size_t next)
        : m_message(message), m_fields(fields), m_next(next)
    {
    }

    void append(const std::string& signature)
    {
        for (std::size_t at = 0; at < signature.size();) {
            const std::size_t length = WireText::firstType(signature, at);
            appendOne(signature.substr(at, length));
            at += length;
        }
    }

    bool atEnd() const { return m_next == m_fields.size(); }

private:
    const std::string& take()
    {
        if (atEnd()) {
            throw std::runtime_error("too few arguments for the signature");
        }
        return m_fields[m_next++];
    }

    void appendOne(const std::string& type)
    {
        const std::string inner = type.size() > 2 ? type.substr(1, type.size() - 2) : std::string();
        switch (type[0]) {
        case 'a':
            appendArray(type.substr(1));
            break;
        case '(':
            appendContainer('r', inner, inner);
            break;
        case '{':
            appendContainer('e', inner, inner);
            break;
        case 'v': {
            const std::string signature = take();
            appendContainer('v', signature, signature);
            break;
        }
        default:
            appendBasic(type[0]);
        }
    }

    void appendContainer(char type, const std::string& contents, const std::string& signature)
    {
        check(sd_bus_message_open_container(m_message, type, contents.c_str()), "open container");
        append(signature);
        check(sd_bus_message_close_container(m_message), "close container");
    }

    void appendArray(const std::string& element)
    {
        if (element == "y") {
            const std::vector<std::uint8_t> bytes = bytesOf(take());
            check(sd_bus_message_append_array(m_message, 'y', bytes.data(), bytes.size()), "append bytes");
            return;
        }
        check(sd_bus_message_open_container(m_message, 'a', element.c_str()), "open array");
        for (long count = std::stol(take()); count > 0; --count) {
            append(element);
        }
        check(sd_bus_message_close_container(m_message), "close array");
    }

    void appendBasic(char type)
    {
        const std::string& field = take();
        union {
            std::uint8_t y;
            int b;
            std::int16_t n;
            std::uint16_t q;
            std::int32_t i;
            std::uint32_t u;
            std::int64_t x;
            std::uint64_t t;
            double d;
        } value = {};
        const void* pointer = &value;
        switch (type) {
        case 'y':
            value.y = std::uint8_t(std::stoul(field));
            break;
        case 'b':
            value.b = field == "true";
            break;
        case 'n':
            value.n = std::int16_t(std::stol(field));
            break;
        case 'q':
            value.q = std::uint16_t(std::stoul(field));
            break;
        case 'i':
            value.i = std::int32_t(std::stol(field));
            break;
        case 'u':
            value.u = std::uint32_t(std::stoul(field));
            break;
        case 'x':
            value.x = std::stoll(field);
            break;
        case 't':
            value.t = std::stoull(field);
            break;
        case 'd':
            value.d = std::stod(field);
            break;
        case 'h':
            value.i = std::stoi(field);
            break;
        default:
            pointer = field.c_str();
        }
        check(sd_bus_message_append_basic(m_message, type, pointer), "append");
    }

    sd_bus_message* m_message;
    const Fields& m_fields;
    std::size_t m_next;
};

void print(const std::string& object)
{
    std::fputs((object + '\n').c_str(), stdout);
    std::fflush(stdout);
}

void printAnswer(const std::string& id, const std::string& type, const std::string& text = {})
{
    print("{\"id\":" + id + ",\"type\":\"" + type + "\",\"errorText\":" + WireText::quoted(text) + "}");
}

int onReply(sd_bus_message* message, void* data, sd_bus_error* /*error*/)
{
    auto* id = static_cast<std::string*>(data);
    print(WireText::message(message, *id));
    delete id;
    return 0;
}

int onSignal(sd_bus_message* message, void* /*data*/, sd_bus_error* /*error*/)
{
    print(WireText::message(message, "0"));
    return 0;
}

void call(Client& client, const Fields& fields)
{
    enum
    {
        Id = 1,
        Flags,
        Timeout,
        Destination,
        Path,
        Interface,
        Member,
        Signature,
        Arguments
    };
    sd_bus_message* message = nullptr;
    const char* interface = fields.at(Interface).empty() ? nullptr : fields[Interface].c_str();
    check(sd_bus_message_new_method_call(client.bus, &message, fields.at(Destination).c_str(),
                                         fields.at(Path).c_str(), interface, fields.at(Member).c_str()),
          "make call");
    Appender appender(message, fields, Arguments);
    appender.append(fields.at(Signature));
    if (!appender.atEnd()) {
        throw std::runtime_error("too many arguments for the signature");
    }
    if (fields.at(Flags) == "noreply") {
        check(sd_bus_message_set_expect_reply(message, 0), "set no reply");
        check(sd_bus_send(client.bus, message, nullptr), "send");
        printAnswer(fields[Id], "sent");
    } else {
        check(sd_bus_call_async(client.bus, nullptr, message, onReply, new std::string(fields[Id]),
                                std::stoull(fields.at(Timeout)) * 1000),
              "call");
    }
    sd_bus_message_unref(message);
}

void emitSignal(Client& client, const Fields& fields)
{
    enum
    {
        Id = 1,
        Path,
        Interface,
        Member,
        Signature,
        Arguments
    };
    sd_bus_message* message = nullptr;
    check(sd_bus_message_new_signal(client.bus, &message, fields.at(Path).c_str(),
                                    fields.at(Interface).c_str(), fields.at(Member).c_str()),
          "make signal");
    Appender(message, fields, Arguments).append(fields.at(Signature));
    check(sd_bus_send(client.bus, message, nullptr), "send");
    sd_bus_message_unref(message);
    printAnswer(fields[Id], "sent");
}

void execute(Client& client, const Fields& fields)
{
    if (fields.at(0) == "call") {
        call(client, fields);
    } else if (fields[0] == "signal") {
        emitSignal(client, fields);
    } else if (fields[0] == "match") {
        check(sd_bus_add_match(client.bus, nullptr, fields.at(2).c_str(), onSignal, nullptr), "match");
        printAnswer(fields.at(1), "done");
    } else if (fields[0] == "own") {
        check(sd_bus_request_name(client.bus, fields.at(2).c_str(), 0), "own");
        printAnswer(fields.at(1), "done");
    } else {
        throw std::runtime_error("unknown request " + fields[0]);
    }
}

int onInput(sd_event_source* source, int fd, std::uint32_t /*events*/, void* data)
{
    auto& client = *static_cast<Client*>(data);
    char buffer[65536];
    const ssize_t count = read(fd, buffer, sizeof buffer);
    if (count <= 0) {
        return sd_event_exit(sd_event_source_get_event(source), 0);
    }
    client.input.append(buffer, std::size_t(count));
    std::size_t begin = 0;
    for (std::size_t end; (end = client.input.find('\n', begin)) != std::string::npos; begin = end + 1) {
        const Fields fields = split(client.input.substr(begin, end - begin));
        try {
            execute(client, fields);
        } catch (const std::exception& error) {
            printAnswer(fields.size() > 1 ? fields[1] : "0", "refused", error.what());
        }
    }
    client.input.erase(0, begin);
    return 0;
}

int run()
{
    Client client;
    check(sd_event_default(&client.loop), "event loop");
    check(sd_bus_open_system(&client.bus), "connect to $DBUS_SYSTEM_BUS_ADDRESS");
    check(sd_bus_attach_event(client.bus, client.loop, 0), "attach");
    const char* name = nullptr;
    check(sd_bus_get_unique_name(client.bus, &name), "unique name");
    print(std::string("{\"type\":\"ready\",\"name\":\"") + name + "\"}");
    check(sd_event_add_io(client.loop, nullptr, STDIN_FILENO, EPOLLIN, onInput, &client), "watch input");
    const int result = sd_event_loop(client.loop);
    sd_bus_flush_close_unref(client.bus);
    sd_event_unref(client.loop);
    return result;
}

} // namespace

int main()
{
    try {
        return run();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "raw-bus-client: %s\n", error.what());
        return 1;
    }
}
