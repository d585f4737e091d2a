#pragma once

#include "DBusTypes.h"

#include <QMap>
#include <QSet>
#include <QString>
#include <QStringList>

/** The adapters with what the manager uses of them, and which of them counts. Internal: not installed. */
class KnownAdapters
{
public:
    /** @param choice  see AdapterChoice::isChosen() */
    void choose(const QString& choice) { m_choice = choice; }

    /** Whether an object's managers count: all do where nothing was chosen. */
    bool isChosen(const QString& path) const;

    /**
     * BlueZ has announced interfaces.
     * @return those of its managers that count from now on. Where the address comes after the managers, they
     * are among what comes with it.
     */
    QStringList added(const QString& path, const DBusInterfaceList& interfaces);
    /** BlueZ has withdrawn interfaces. */
    void removed(const QString& path, const QStringList& interfaces);
    /** BlueZ has ended. */
    void clear() { m_adapters.clear(); }

    /** The path of the first manager of this interface that counts; empty where there is none. */
    QString findManager(const QString& interface) const;

private:
    struct Adapter
    {
        QString address;
        QSet<QString> managers; ///< their interfaces
    };

    QString m_choice;
    QMap<QString, Adapter> m_adapters; ///< by path
};
