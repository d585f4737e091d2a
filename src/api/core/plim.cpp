#include "plim.h"

#include <QDBusObjectPath>
#include <QThread>

#include <cstdio>
#include <cstdlib>
#include <ostream>

std::string dbglog_scopedFunction(const std::string& signature, const std::string& /*loggerName*/)
{
    const auto end = signature.find('(');
    if (end == std::string::npos) {
        return signature;
    }
    const auto blank = signature.find_last_of(" *&", end);
    const auto begin = blank == std::string::npos ? 0 : blank + 1;
    return signature.substr(begin, end - begin);
}

std::ostream& operator<<(std::ostream& stream, const QString& text)
{
    return stream << text.toUtf8();
}

std::ostream& operator<<(std::ostream& stream, const QByteArray& bytes)
{
    return stream.write(bytes.constData(), bytes.size());
}

std::ostream& operator<<(std::ostream& stream, const QVariant& value)
{
    if (!value.isValid()) {
        return stream << "<invalid>";
    }
    if (value.userType() == QMetaType::QByteArray) {
        return stream << value.toByteArray();
    }
    if (value.userType() == qMetaTypeId<QDBusObjectPath>()) {
        return stream << value.value<QDBusObjectPath>().path();
    }
    if (value.userType() == QMetaType::UChar) {
        return stream << value.toUInt(); // the one number that does not convert to a string
    }
    if (value.canConvert<QString>()) {
        return stream << value.toString();
    }
    return stream << '<' << value.typeName() << '>';
}

namespace plim {

void assertionFailed(const char* assertion)
{
    std::fprintf(stderr, "plim: assertion failed: %s\n", assertion);
    std::fflush(stderr);
    std::abort();
}

bool detail::verifyConnectionSignalParameters(const QObject* sender, const QMetaMethod& signal,
                                              const QObject* receiver)
{
    if (!sender || !receiver || sender->thread() == receiver->thread()) {
        return true;
    }
    const QList<QByteArray> types = signal.parameterTypes();
    for (int i = 0; i < types.size(); ++i) {
        if (!types.at(i).endsWith('*') && signal.parameterType(i) == QMetaType::UnknownType) {
            return false;
        }
    }
    return true;
}

} // namespace plim
