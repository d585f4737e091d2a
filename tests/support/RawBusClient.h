#pragma once

#include <QByteArray>
#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QVector>

#include <functional>

/** A message as the other process saw it on the wire. */
struct BusMessage
{
    /** "method_return", "error", "signal"; "sent" and "done" where there is no reply; "refused" by the client
     * itself. */
    QString type;
    QString sender;
    QString path;
    QString interface;
    QString member;
    QString signature;
    QString errorName;
    QString errorText;
    /** [element, …], {key: value, …}, (member, …), <signature value>, byte arrays as [hexadecimal digits] */
    QString text;
    /** See WireText::message(). */
    QJsonArray body;

    bool isReply() const { return type == QLatin1String("method_return"); }
    bool isError() const { return type == QLatin1String("error"); }
    /** The first argument, a byte array or a variant that holds one. */
    QByteArray bytes() const;
};

/** A method call for RawBusClient. */
struct BusCall
{
    QString path;
    QString interface;
    QString member;
    QString signature = {};
    /** Flat as busctl takes them; byte arrays as one string of hexadecimal digits. */
    QStringList arguments = {};
    bool noReply = false;
    /** Where the call goes; the test process itself where empty. */
    QString destination = {};
    int timeoutMs = 20000;
};

/**
 * A D-Bus client in a process of its own, on the bus of $DBUS_SYSTEM_BUS_ADDRESS, that does what the test
 * says. While the test waits for an answer its own event loop runs, so objects of the test process can be
 * what is called.
 */
class RawBusClient
{
public:
    /** Starts the program in $PLIM_RAW_BUS_CLIENT and waits until it is on the bus. */
    RawBusClient();
    ~RawBusClient();
    Q_DISABLE_COPY(RawBusClient)

    /** The client's unique bus name; empty if it could not be started. */
    QString name() const { return m_name; }

    BusMessage call(const BusCall& call) { return answer(start(call)); }
    BusMessage call(const QString& path, const QString& interface, const QString& member,
                    const QString& signature = {}, const QStringList& arguments = {});

    /** Sends a call without waiting. @return what answer() takes */
    int start(const BusCall& call);
    /** Waits for an answer. */
    BusMessage answer(int id);
    bool isAnswered(int id) const { return m_answers.contains(id); }

    /** org.freedesktop.DBus.Properties */
    BusMessage get(const QString& path, const QString& interface, const QString& property);
    BusMessage getAll(const QString& path, const QString& interface);
    /** The introspection data of an object of the test process. */
    QString introspect(const QString& path);

    /** Collects the signals that a match rule asks for, of all senders, from now on. */
    void match(const QString& rule);
    /** Sends a signal. @param arguments  as those of a call */
    void emitSignal(const QString& path, const QString& interface, const QString& member,
                    const QString& signature, const QStringList& arguments);
    /** The same without waiting. @return what answer() takes */
    int startSignal(const QString& path, const QString& interface, const QString& member,
                    const QString& signature, const QStringList& arguments);
    /** Requests a bus name. */
    BusMessage own(const QString& busName);

    /**
     * A Peer.Ping round trip: afterwards everything that the destination (the test process where empty) sent
     * before has arrived here.
     */
    void ping(const QString& destination = {});
    /** The signals that this process has sent so far, each given once, in the order of arrival. */
    QVector<BusMessage> takeSignals();

    /** The client leaves the bus. */
    void close();

private:
    bool waitFor(const std::function<bool()>& condition);
    int request(const QStringList& fields);
    void readLines();

    QProcess m_process;
    QString m_name;
    int m_lastId = 0;
    QHash<int, BusMessage> m_answers;
    QVector<BusMessage> m_signals;
};
