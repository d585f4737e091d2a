#include "Interpreter.h"

namespace {

QByteArray hex(const QStringList& values, int index)
{
    return QByteArray::fromHex(values.value(index).toLatin1());
}

} // namespace

void setAdvertisementProperty(GapAdvertisement& advertisement, const QString& property,
                              const QStringList& values)
{
    const QString first = values.value(0);
    if (property == "name") {
        advertisement.setLocalName(values.join(' '));
    } else if (property == "type") {
        advertisement.setType(GapAdvertisement::GapDeviceType(first.toInt()));
    } else if (property == "uuids") {
        advertisement.setServiceUUIDs(values);
    } else if (property == "discoverable") {
        advertisement.setDiscoverable(first == "1");
    } else if (property == "manufacturer") {
        advertisement.setManufacturerData({{first.toUShort(nullptr, 16), hex(values, 1)}});
    } else if (property == "service-data") {
        advertisement.setServiceData({{first, hex(values, 1)}});
    } else if (property == "data") {
        advertisement.setAdvData(uint8_t(first.toUShort(nullptr, 16)), hex(values, 1));
    } else if (property == "scan-response") {
        advertisement.setScanRspData(uint8_t(first.toUShort(nullptr, 16)), hex(values, 1));
    } else if (property == "tx-power") {
        advertisement.setTxPower(first.toShort());
    } else if (property == "include-tx-power") {
        advertisement.setIncludeTxPower(first == "1");
    } else if (property == "min-interval") {
        advertisement.setMinInterval(first.toUInt());
    } else if (property == "max-interval") {
        advertisement.setMaxInterval(first.toUInt());
    } else if (property == "appearance") {
        advertisement.setAppearance(first.toUShort(nullptr, 16));
    } else if (property == "timeout") {
        advertisement.setTimeout(first.toUShort());
    } else {
        throw "the property " + property;
    }
}
