#pragma once

#include <QByteArray>
#include <QStringList>
#include <QVariantMap>

#include <optional>
#include <vector>

/**
 * What reads, writes and pushed values do to one characteristic, told from the rules and without a look at
 * the library, to compare with.
 */
struct GattModel
{
    /** What the outside sees, in order: signals and callbacks, and log lines. */
    struct Trace
    {
        QStringList events;
        QStringList lines;
    };

    /** What a read callback does: it may push a value first, then answers. */
    struct Callback
    {
        std::optional<QByteArray> pushed;
        QByteArray answer;
    };

    GattModel(QString ownName, GattModel* ownControl, Trace& sharedTrace);

    QByteArray read(const QVariantMap& options);
    void write(const QByteArray& bytes, const QVariantMap& options);
    void push(const QByteArray& bytes);

    QString name;
    GattModel* control;
    /** Those whose control this is, in the order of their making. */
    std::vector<GattModel*> controlled;
    Trace& trace;

    QByteArray value;
    QByteArray cached;
    std::optional<QByteArray> parked;
    bool notifying = false;
    std::optional<Callback> callback;

private:
    void notify();
    void controlWritten();
};
