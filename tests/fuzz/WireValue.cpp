#include "WireValue.h"

namespace {

int sizeOf(char type)
{
    switch (type) {
    case 'y':
        return 1;
    case 'n':
    case 'q':
        return 2;
    case 'x':
    case 't':
    case 'd':
        return 8;
    default:
        return 4;
    }
}

int alignmentOf(char type)
{
    switch (type) {
    case '(':
    case '{':
        return 8;
    case 'g':
    case 'v':
        return 1;
    default:
        return sizeOf(type);
    }
}

} // namespace

std::size_t completeType(const std::string& signature, std::size_t at)
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

WireValue WireValue::bytes(const QByteArray& bytes)
{
    WireValue array{"ay", {}, 0, {}};
    for (const char byte : bytes) {
        array.children.push_back(number('y', static_cast<unsigned char>(byte)));
    }
    return array;
}

bool operator==(const WireValue& a, const WireValue& b)
{
    return a.signature == b.signature && a.text == b.text && a.bits == b.bits && a.children == b.children;
}

void WireWriter::align(int boundary)
{
    while (data.size() % boundary != 0) {
        data.append('\0');
    }
}

void WireWriter::writeNumber(quint64 bits, int size)
{
    align(size);
    for (int i = 0; i < size; ++i) {
        data.append(char(bits >> 8 * (m_bigEndian ? size - 1 - i : i)));
    }
}

void WireWriter::writeText(const std::string& text, int lengthSize)
{
    writeNumber(text.size(), lengthSize);
    data.append(text.data(), int(text.size()));
    data.append('\0');
}

void WireWriter::writeArray(const WireValue& array)
{
    writeNumber(0, 4);
    const auto lengthAt = data.size() - 4;
    // The padding in front of the first element is there without one too, and does not count.
    align(alignmentOf(array.signature[1]));
    const auto begin = data.size();
    for (const WireValue& child : array.children) {
        write(child);
    }
    WireWriter length(m_bigEndian);
    length.writeNumber(quint64(data.size() - begin), 4);
    data.replace(lengthAt, 4, length.data);
}

void WireWriter::write(const WireValue& value)
{
    switch (value.type()) {
    case 'a':
        return writeArray(value);
    case '(':
    case '{':
        align(8);
        break;
    case 'v':
        writeText(value.children[0].signature, 1);
        break;
    case 'g':
        return writeText(value.text, 1);
    case 's':
    case 'o':
        return writeText(value.text, 4);
    default:
        return writeNumber(value.bits, sizeOf(value.type()));
    }
    for (const WireValue& child : value.children) {
        write(child);
    }
}
