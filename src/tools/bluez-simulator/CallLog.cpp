#include "CallLog.h"

#include "DBusValue.h"

#include <QStringList>

namespace simulator {

void CallLog::record(const QDBusMessage& call)
{
    QStringList texts;
    const QVariantList arguments = call.arguments();
    for (const QVariant& argument : arguments) {
        texts += DBusValue::text(argument);
    }
    const QString text =
        QStringLiteral("%1 %2.%3(%4)")
            .arg(call.path(), call.interface(), call.member(), texts.join(QStringLiteral(", ")));
    m_calls += QVariantMap{{QStringLiteral("order"), uint(m_calls.size()) + 1},
                           {QStringLiteral("member"), call.member()},
                           {QStringLiteral("interface"), call.interface()},
                           {QStringLiteral("path"), call.path()},
                           {QStringLiteral("signature"), call.signature()},
                           {QStringLiteral("sender"), call.service()},
                           {QStringLiteral("arguments"), arguments},
                           {QStringLiteral("text"), text}};
    emit recorded(call.member(), call.path(), text);
}

void CallLog::clear()
{
    m_calls.clear();
}

} // namespace simulator
