#include "GattModel.h"

#include "Literals.h"
#include "PageModel.h"

#include <utility>

namespace {

long long offsetOf(const QVariantMap& options)
{
    return options.contains("offset"_qs) ? options["offset"_qs].toInt() : 0;
}

} // namespace

GattModel::GattModel(QString ownName, GattModel* ownControl, Trace& sharedTrace)
    : name(std::move(ownName)), control(ownControl), trace(sharedTrace)
{
    if (control) {
        control->controlled.push_back(this);
    }
}

QByteArray GattModel::read(const QVariantMap& options)
{
    std::optional<long long> page;
    if (control && !control->value.isEmpty()) {
        bool isNumber = false;
        const int number = control->value.toInt(&isNumber, 10);
        if (isNumber) {
            page = number;
        } else {
            const QByteArray& text = control->value;
            trace.lines << "WARN Invalid page offset: "_qs + QString::fromUtf8(text.constData(), text.size());
        }
    }
    const long long offset = offsetOf(options);
    if (callback && PageModel::callsCallback(offset, page)) {
        trace.events << "callback of "_qs + name;
        if (callback->pushed) {
            push(*callback->pushed);
        }
        value = callback->answer;
    }
    cached = PageModel::readCharacteristic(value, offset, page);
    return cached;
}

void GattModel::write(const QByteArray& bytes, const QVariantMap& options)
{
    // What is no number counts as page 0 here.
    const long long page = control ? control->value.toInt() : 0;
    if (page < 0) {
        trace.lines << "ERROR Invalid page offset: %1"_qs.arg(page);
        return;
    }
    value = PageModel::writeCharacteristic(value, offsetOf(options), page, bytes);
    trace.events << "written "_qs + name;
    for (GattModel* each : controlled) {
        each->controlWritten();
    }
    notify();
}

void GattModel::push(const QByteArray& bytes)
{
    if (control) {
        parked = bytes;
        if (!control->value.isEmpty()) {
            return;
        }
    }
    value = bytes;
    notify();
}

void GattModel::controlWritten()
{
    if (control->value == "0" && parked) {
        value = *std::exchange(parked, std::nullopt);
        notify();
    }
}

void GattModel::notify()
{
    if (notifying) {
        trace.events << "notified %1 %2"_qs.arg(name, QString::fromLatin1(value.toHex()));
    }
}
