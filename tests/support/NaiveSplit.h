#pragma once

#include "BleDBusTypes.h"

#include <QStringList>

#include <cstddef>
#include <map>
#include <string>

/** The rules of splitting a raw payload once more, step by step and byte by byte, to compare with. */
struct NaiveSplit
{
    std::map<unsigned, std::string> blocks;
    /** The line that is logged for each structure. */
    QStringList lines;

    explicit NaiveSplit(const QByteArray& payload)
    {
        const std::string all = payload.toStdString();
        if (all.size() < 2) {
            return;
        }
        std::size_t position = 0;
        do {
            const unsigned length = static_cast<unsigned char>(all[position]);
            const unsigned type = static_cast<unsigned char>(all[position + 1]);
            lines << QStringLiteral("chunk type: %1 length: %2").arg(type).arg(length);
            std::string value;
            for (std::size_t i = position + 2; i < all.size(); ++i) {
                const bool takesAllTheRest = length == 0;
                if (takesAllTheRest || i < position + 1 + length) {
                    value += all[i];
                }
            }
            blocks[type] = value;
            position = position + length + 1;
        } while (position + 1 < all.size());
    }

    DBusAdvData result() const
    {
        DBusAdvData map;
        for (const auto& [type, value] : blocks) {
            map.insert(static_cast<unsigned char>(type), QByteArray::fromStdString(value));
        }
        return map;
    }
};
