#include "EchoModel.h"

#include <QString>
#include <QVariant>

#include <algorithm>
#include <cstring>
#include <map>

namespace {

template <typename Number>
QByteArray text(quint64 bits)
{
    Number number;
    std::memcpy(&number, &bits, sizeof number);
    return QVariant::fromValue(number).toByteArray();
}

/** What a variant of this type converts to as bytes. */
QByteArray toBytes(const WireValue& value)
{
    switch (value.type()) {
    case 'y':
        return text<unsigned char>(value.bits);
    case 'b':
        return value.bits ? "true" : "false";
    case 'n':
        return text<short>(value.bits);
    case 'q':
        return text<unsigned short>(value.bits);
    case 'i':
        return text<int>(value.bits);
    case 'u':
        return text<unsigned int>(value.bits);
    case 'x':
        return text<qlonglong>(value.bits);
    case 't':
        return text<qulonglong>(value.bits);
    case 'd':
        return text<double>(value.bits);
    case 's':
        return QByteArray::fromStdString(value.text);
    default:
        break;
    }
    QByteArray bytes;
    if (value.signature == "ay") {
        for (const WireValue& byte : value.children) {
            bytes.append(char(byte.bits));
        }
    }
    return bytes;
}

WireValue entry(const WireValue& key, const WireValue& value)
{
    return {'{' + key.signature + value.signature + '}', {}, 0, {key, value}};
}

/** Of two entries with one key the later one stays, and each value is bytes. */
WireValue blocks(const WireValue& dictionary)
{
    std::map<quint64, WireValue> entries;
    for (const WireValue& each : dictionary.children) {
        const WireValue& key = each.children[0];
        const WireValue& variant = each.children[1];
        const WireValue bytes = WireValue::bytes(toBytes(variant.children[0]));
        entries[key.bits] = entry(key, WireValue::variant(bytes));
    }
    WireValue result{dictionary.signature, {}, 0, {}};
    for (const auto& [key, value] : entries) {
        result.children.push_back(value);
    }
    return result;
}

bool keyPrecedes(const WireValue& a, const WireValue& b)
{
    return QString::fromStdString(a.children[0].text) < QString::fromStdString(b.children[0].text);
}

/** Qt's own maps keep all entries with one key, the latest of them first. */
WireValue sorted(const WireValue& value)
{
    if (value.signature.compare(0, 2, "a{") != 0) {
        return value; // a property's value, which stays as it is
    }
    WireValue result{value.signature, {}, 0, {}};
    for (const WireValue& each : value.children) {
        result.children.push_back(entry(each.children[0], sorted(each.children[1])));
    }
    std::reverse(result.children.begin(), result.children.end());
    std::stable_sort(result.children.begin(), result.children.end(), keyPrecedes);
    return result;
}

/** The library's own map keeps the later of two entries with one path. */
WireValue withoutFormerEntries(const WireValue& dictionary)
{
    WireValue result{dictionary.signature, {}, 0, {}};
    for (const WireValue& each : dictionary.children) {
        const bool isFirst = result.children.empty() || keyPrecedes(result.children.back(), each);
        if (isFirst) {
            result.children.push_back(each);
        }
    }
    return result;
}

} // namespace

WireValue EchoModel::echo(const WireValue& argument)
{
    if (argument.signature == "a{yv}" || argument.signature == "a{qv}") {
        return blocks(argument);
    }
    // With the latest first, the first of each key is the one to keep.
    return argument.signature == "a{oa{sv}}" ? withoutFormerEntries(sorted(argument)) : sorted(argument);
}
