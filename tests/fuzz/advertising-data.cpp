// The splitting of raw advertising payloads, compared with a second transcription of its rules. The input is
// the payload.

#include "Finding.h"
#include "GapAdvertisement.h"
#include "Literals.h"
#include "LogCapture.h"
#include "NaiveSplit.h"

#include <QCoreApplication>

#include <log4cplus/logger.h>

namespace {

struct Fixture
{
    Fixture()
    {
        // Splitting needs no bus, so the export of the advertisement may fail.
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus");
    }

    int argc = 0;
    QCoreApplication application{argc, nullptr};
    LogCapture log;
    log4cplus::Logger logger = log4cplus::Logger::getInstance("Ble");
    GapAdvertisement advertisement{nullptr, "/advertisement"_qs};
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    static Fixture& fixture = *new Fixture;
    // Memory of its exact size: a read behind the end is seen.
    const QByteArray payload(reinterpret_cast<const char*>(data), int(size));
    const NaiveSplit expected(payload);

    fixture.log.clear();
    fixture.logger.setLogLevel(log4cplus::DEBUG_LOG_LEVEL);
    const DBusAdvData blocks = fixture.advertisement.parseAdvertisementData(payload);
    require(blocks == expected.result(), [&] { return "other blocks for "_qs + payload.toHex(' '); });
    require(fixture.log.texts(log4cplus::DEBUG_LOG_LEVEL) == expected.lines,
            [&] { return "other log lines for "_qs + payload.toHex(' '); });

    fixture.logger.setLogLevel(log4cplus::OFF_LOG_LEVEL);
    fixture.advertisement.setAdvData(payload);
    fixture.advertisement.setScanRspData(payload);
    require(fixture.advertisement.data() == blocks && fixture.advertisement.scanData() == blocks,
            [&] { return "the setters store something else for "_qs + payload.toHex(' '); });
    return 0;
}
