#pragma once

#include <QByteArray>

#include <string>
#include <vector>

/** A D-Bus value of any type, as a tree. */
struct WireValue
{
    /** One complete type; a dictionary's entry is a container of its own, "{sv}". */
    std::string signature;
    /** What a string, object path or signature holds, or the bits of a number. */
    std::string text;
    quint64 bits = 0;
    std::vector<WireValue> children;

    char type() const { return signature[0]; }

    static WireValue number(char type, quint64 bits) { return {{type}, {}, bits, {}}; }
    static WireValue bytes(const QByteArray& bytes);
    static WireValue variant(const WireValue& value) { return {"v", {}, 0, {value}}; }
};

bool operator==(const WireValue& a, const WireValue& b);

/** Writes the body of a message, or its header, which is a body of its own. */
class WireWriter
{
public:
    explicit WireWriter(bool bigEndian = false) : m_bigEndian(bigEndian) {}

    void write(const WireValue& value);
    void align(int boundary);
    QByteArray data;

private:
    void writeNumber(quint64 bits, int size);
    void writeText(const std::string& text, int lengthSize);
    void writeArray(const WireValue& array);

    bool m_bigEndian;
};

/** The length of the complete type that begins at a position of a signature. */
std::size_t completeType(const std::string& signature, std::size_t at);
