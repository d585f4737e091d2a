// Reads and writes.

#include "Bluetooth.h"
#include "Expect.h"
#include "Peripheral.h"
#include "Phone.h"
#include "SceneTree.h"
#include "scenes.h"

#include <QRegularExpression>

namespace {

/** What daemon-peripheral's "fill" sets. */
QByteArray pattern(int size)
{
    QByteArray bytes;
    for (int i = 0; bytes.size() < size; ++i) {
        bytes += QByteArray::number(i) + '.';
    }
    return bytes.left(size);
}

void readEverything(Phone& phone, Peripheral& peripheral)
{
    Expect::equal(phone.read(SceneTree::fixed), QByteArray("hello"), "a value that was set");
    const int before = peripheral.asked("asked");
    Expect::equal(phone.read(SceneTree::asked), QByteArray("answer"), "a value from a callback");
    peripheral.settle();
    Expect::equal(peripheral.asked("asked"), before + 1, "the callback was called once");
    Expect::equal(phone.read(SceneTree::empty), QByteArray(), "an empty value");
    Expect::equal(phone.read(SceneTree::longest), pattern(512), "512 bytes");
    Expect::equal(phone.read(SceneTree::longest, {{"offset", QVariant::fromValue(ushort(500))}}),
                  pattern(512).mid(500), "the same from byte 500 on");
    Expect::equal(phone.read(SceneTree::description), QByteArray("text for a header"),
                  "a descriptor's value");
    Expect::equal(phone.read(SceneTree::hidden), QByteArray("*"), "a value in a secondary service");
}

} // namespace

void Scenes::read()
{
    Bluetooth bluetooth;
    Peripheral peripheral;
    SceneTree::build(peripheral);
    peripheral.tell("log TRACE");
    Phone phone(bluetooth.phone(), bluetooth.deviceAddress());
    phone.meet();
    readEverything(phone, peripheral);
    static const QRegularExpression response("ATT: Read Response [^\n]*\n[^>]*68656c6c6f");
    Expect::eventually([&] { return bluetooth.monitored().contains(response); },
                       "btmon shows the value in a Read Response");
}

void Scenes::smallTransfers()
{
    // The smallest one for which the daemon, which also listens on classic Bluetooth, starts.
    Bluetooth bluetooth("[GATT]\nExchangeMTU = 48\n");
    Peripheral peripheral;
    SceneTree::build(peripheral);
    peripheral.tell("log TRACE");
    Phone phone(bluetooth.phone(), bluetooth.deviceAddress());
    phone.meet();
    readEverything(phone, peripheral);
    Expect::that(peripheral.wrote("(offset, 47)"), "a long value is read in parts of 47 bytes");
    Expect::equal(phone.readPages(SceneTree::record, SceneTree::page), pattern(1300), "1,300 bytes in pages");

    const QByteArray sent = pattern(456);
    phone.write(SceneTree::writable, sent);
    peripheral.settle();
    Expect::equal(peripheral.written("writable").value(0), sent, "456 bytes written in parts");
    Expect::equal(peripheral.written("writable").size(), 1, "the program sees one write");
}

void Scenes::pages()
{
    Bluetooth bluetooth;
    Peripheral peripheral;
    SceneTree::build(peripheral);
    Phone phone(bluetooth.phone(), bluetooth.deviceAddress());
    phone.meet();
    Expect::equal(phone.readPages(SceneTree::record, SceneTree::page), pattern(1300),
                  "1,300 bytes, byte by byte");

    // While a page, even page 0, is selected a new value waits until "0" is written.
    peripheral.tell("fill record 65536");
    phone.write(SceneTree::page, "0");
    Expect::equal(phone.readPages(SceneTree::record, SceneTree::page), pattern(65536),
                  "65,536 bytes, byte by byte");
}

void Scenes::write()
{
    Bluetooth bluetooth;
    Peripheral peripheral;
    SceneTree::build(peripheral);
    Phone phone(bluetooth.phone(), bluetooth.deviceAddress());
    phone.meet();
    using Values = QList<QByteArray>;

    const auto writtenTo = [&](const char* name) {
        peripheral.settle();
        return peripheral.written(name);
    };

    phone.write(SceneTree::writable, "short");
    Expect::that(writtenTo("writable") == Values{"short"}, "a short write is seen once");

    const QByteArray sent = pattern(510);
    phone.write(SceneTree::writable, sent);
    Expect::that(writtenTo("writable") == Values{"short", sent}, "510 bytes are seen once");
    Expect::equal(phone.read(SceneTree::writable), sent, "and read back");

    phone.write(SceneTree::writable, "tail", {{"offset", QVariant::fromValue(ushort(500))}});
    Expect::that(writtenTo("writable") == Values{"short", sent, sent.left(500) + "tail"},
                 "a prepared write at offset 500 is seen once, and cuts the value off behind it");

    phone.write(SceneTree::writable, "request", {{"type", "request"}});
    Expect::equal(writtenTo("writable").size(), 4, "a write request is seen once");

    const QString refusal = phone.tryWrite(SceneTree::writable, pattern(512));
    Expect::note("writing 512 bytes: " + (refusal.isEmpty() ? "accepted" : refusal));

    phone.write(SceneTree::note, "a note");
    Expect::that(writtenTo("note") == Values{"a note"}, "a write to a descriptor is seen once");
    Expect::equal(phone.read(SceneTree::note), QByteArray("a note"), "and read back");

    phone.write(SceneTree::page, "2");
    Expect::that(writtenTo("page") == Values{"2"}, "a write to a control is seen once");
    Expect::equal(phone.read(SceneTree::record), pattern(1300).mid(1024), "and selects the page");
}
