#pragma once

#include <QDBusMessage>
#include <QList>
#include <QObject>
#include <QVariantMap>

namespace simulator {

/** Keeps every call that org.bluez has received, in order. */
class CallLog : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

    /** Appends a received call. */
    void record(const QDBusMessage& call);

    /** What has been recorded since the start or the last clear(), as the control interface shows it. */
    const QList<QVariantMap>& calls() const { return m_calls; }

    /** Forgets all calls; the next one has order 1 again. */
    void clear();

signals:
    void recorded(const QString& member, const QString& path, const QString& text);

private:
    QList<QVariantMap> m_calls;
};

} // namespace simulator
