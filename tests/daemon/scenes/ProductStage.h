#pragma once

#include "AttClient.h"
#include "Bluetooth.h"
#include "Peripheral.h"

#include <QStringList>

/** What the scenes of plim/peripheral begin with: the daemon, a peripheral on the air, a central that speaks
 * ATT itself. */
class ProductStage
{
public:
    /**
     * @param commands       build the application: services, characteristics, handlers
     * @param configuration  what the daemon's main.conf is to say, nothing for its defaults
     */
    explicit ProductStage(const QStringList& commands, const QByteArray& configuration = {},
                          Bluetooth::Records records = Bluetooth::Recorded);

    /** The daemon's name for the central on the peripheral's side. */
    QString centralPath() const;
    /** The two ends of a pairing forget each other, and the central connects again. */
    void forgetEachOther();
    /** Expects btmon to have seen the errors that the central got, and no others. How often is not compared:
     * btmon misses packets when there are many. */
    void expectWitness();

    Bluetooth bluetooth;
    Peripheral peripheral;
    AttClient central;
};

/** A device's object path as the daemon makes it of the adapter's and the address. */
QString devicePath(const QString& adapter, const QString& address);
