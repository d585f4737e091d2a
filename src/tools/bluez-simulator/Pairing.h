#pragma once

#include "AgentManager.h"

#include <QDBusMessage>
#include <QObject>
#include <QString>

namespace simulator {

class AttPhone;
class Daemon;

/**
 * A phone's attempts to pair, one after the other: what both sides can show and ask decides about the
 * question that the default agent gets, as with LE Secure Connections and protection against a man in the
 * middle. A failed attempt ends the link, as the kernel does.
 */
class Pairing : public QObject
{
    Q_OBJECT

public:
    Pairing(AttPhone* phone, Daemon* daemon);

    /** Starts an attempt. @param capability  what the phone can show and ask
     * @return what is wrong with the call, or an empty text */
    QString start(const QString& capability);
    /** The phone's user gives up; does nothing when there is no attempt. */
    void cancel();
    /** The phone's user types what the device shows. @return what is wrong with that, or an empty text */
    QString type(const QString& passkey);
    /** The link is lost. */
    void loseLink();

    /** "" before the first attempt, "pairing", "paired" or "failed: REASON". */
    QString state() const { return m_state; }
    /** The six digits that the phone shows; empty where it shows none. */
    QString shown() const { return m_shown; }

private:
    enum Method
    {
        JustWorks,
        Comparison,
        DeviceShows,
        PhoneShows
    };
    static Method methodOf(const QString& deviceCan, const QString& phoneCan);

    void ask(Method method);
    void call(const QString& member, const QVariantList& arguments, bool wantsReply);
    void onAnswer(const QDBusMessage& answer, int attempt);
    void succeed();
    void fail(const QString& reason);
    void cancelQuestion();

    AttPhone* m_phone = nullptr;
    Daemon* m_daemon = nullptr;
    AgentManager::Agent m_agent; // of this attempt
    Method m_method = JustWorks;
    uint m_passkey = 0;
    int m_attempt = 0;
    bool m_isAsking = false; // the agent
    QString m_state;
    QString m_shown;
};

} // namespace simulator
