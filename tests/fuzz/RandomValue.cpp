#include "RandomValue.h"

#include <QString>

#include <fuzzer/FuzzedDataProvider.h>

namespace {

constexpr int maximumDepth = 5;
constexpr int maximumElements = 6;

} // namespace

std::string RandomValue::signature(int depth)
{
    static const char basicTypes[] = "ysobnqiuxtdgh";
    static const char* const usualTypes[] = {"ay",        "as", "a{sv}", "a{yv}",
                                             "a{oa{sv}}", "av", "aay",   "a{qay}"};
    const auto basic = [this] {
        const std::size_t last = sizeof basicTypes - (m_anything ? 2 : 3);
        return std::string(1, basicTypes[m_input.ConsumeIntegralInRange<std::size_t>(0, last)]);
    };
    if (depth >= maximumDepth) {
        return basic();
    }
    switch (m_input.ConsumeIntegralInRange(0, 6)) {
    case 0:
        return "v";
    case 1:
        return 'a' + signature(depth + 1);
    case 2: {
        const std::string key = basic();
        return "a{" + key + signature(depth + 1) + '}';
    }
    case 3: {
        std::string members;
        do {
            members += signature(depth + 1);
        } while (members.size() < 20 && m_input.ConsumeBool());
        return '(' + members + ')';
    }
    case 4:
        return m_input.PickValueInArray(usualTypes);
    default:
        return basic();
    }
}

std::string RandomValue::text()
{
    QString text = QString::fromUtf8(m_input.ConsumeRandomLengthString(12).c_str());
    // Qt takes the mark away where it begins a string.
    text.remove(QChar(QChar::ByteOrderMark));
    return text.toStdString();
}

std::string RandomValue::path()
{
    static const char characters[] = "abAB019_";
    std::string path;
    for (const char c : m_input.ConsumeRandomLengthString(10)) {
        const auto index = static_cast<unsigned char>(c);
        // An element of a path has at least one character.
        const bool slash = index % 3 == 0 && !path.empty() && path.back() != '/';
        path += path.empty() ? "/" : "";
        path += slash ? '/' : characters[index % (sizeof characters - 1)];
    }
    if (path.empty()) {
        return "/";
    }
    return path.back() == '/' ? path + '_' : path;
}

WireValue RandomValue::variant(int depth)
{
    WireValue variant = WireValue::variant(value(signature(depth + 1), depth + 1));
    if (m_input.ConsumeIntegralInRange(0, 15) == 0) {
        const int more = m_input.ConsumeIntegralInRange(0, m_spareVariants);
        m_spareVariants -= more;
        for (int i = 0; i < more; ++i) {
            variant = WireValue::variant(variant);
        }
    }
    return variant;
}

WireValue RandomValue::value(const std::string& signature, int depth)
{
    WireValue value{signature, {}, 0, {}};
    switch (value.type()) {
    case 'v':
        return variant(depth);
    case 'a':
        for (int n = m_input.ConsumeIntegralInRange(0, maximumElements);
             n > 0 && m_input.remaining_bytes() > 0; --n) {
            value.children.push_back(this->value(signature.substr(1), depth + 1));
        }
        break;
    case '(':
    case '{':
        for (std::size_t at = 1; at < signature.size() - 1;) {
            const std::size_t length = completeType(signature, at);
            value.children.push_back(this->value(signature.substr(at, length), depth + 1));
            at += length;
        }
        break;
    case 's':
        value.text = text();
        break;
    case 'o':
        value.text = path();
        break;
    case 'g':
        value.text = m_anything && m_input.ConsumeBool() ? "" : this->signature();
        break;
    case 'b':
        value.bits = m_input.ConsumeBool();
        break;
    case 'y':
        value.bits = m_input.ConsumeIntegral<quint8>();
        break;
    case 'n':
    case 'q':
        value.bits = m_input.ConsumeIntegral<quint16>();
        break;
    case 'x':
    case 't':
    case 'd':
        value.bits = m_input.ConsumeIntegral<quint64>();
        break;
    default:
        value.bits = m_input.ConsumeIntegral<quint32>();
    }
    return value;
}
