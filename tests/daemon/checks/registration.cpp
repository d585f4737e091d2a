// What the library finds wrong beforehand, and what the daemon then does: with the real one and the stand-in.

#include "CheckEnvironment.h"
#include "Expect.h"
#include "Peripheral.h"
#include "SceneTree.h"

namespace {

const QString accepted;
const QString unparsable = QStringLiteral("Failed to parse advertisement.");
const QString tooLong = QStringLiteral("Failed to register advertisement");

/** The worst that is found before anything is registered. */
const QString none;
const QString warning = QStringLiteral("warning");
const QString error = QStringLiteral("error");

QString worst(const QStringList& problems)
{
    for (const QString& severity : {error, warning}) {
        if (!problems.filter(severity).isEmpty()) {
            return severity;
        }
    }
    return none;
}

struct AdvertisementCase
{
    const char* what;
    QStringList properties;
    QString found;
    QString in566;
    QString in582;
};

/** The property, with a manufacturer's block that fills so many bytes. */
QString block(int bytes)
{
    return "manufacturer ffff " + QString("ab").repeated(bytes - 4);
}

QList<AdvertisementCase> rawCases()
{
    return {
        {"raw flags", {"data 01 06"}, error, unparsable, unparsable},
        {"a raw name", {"data 09 41"}, error, unparsable, unparsable},
        {"a raw block of type 0x24", {"data 24 01"}, none, accepted, accepted},
        {"a raw block of type 0x26", {"data 26 01"}, none, accepted, accepted},
        {"a raw block of type 0x26 without a byte", {"data 26"}, error, unparsable, unparsable},
        {"a raw block of type 0x27", {"data 27 01"}, error, unparsable, unparsable},
        {"a raw block of type 0x2b", {"data 2b 01"}, error, unparsable, unparsable},
        {"a raw block of type 0x2c", {"data 2c 01"}, none, accepted, accepted},
        {"a raw block of type 0x3d", {"data 3d 01"}, error, unparsable, unparsable},
        {"a raw block of type 0x3e", {"data 3e 01"}, none, accepted, accepted},
        {"a raw block of type 0xff", {"data ff 01"}, error, unparsable, unparsable},
        {"a raw name in the scan response", {"scan-response 09 41"}, error, accepted, unparsable},
        {"a raw block in the scan response", {"scan-response 24 01"}, none, accepted, accepted},
    };
}

QList<AdvertisementCase> radioCases()
{
    return {
        {"intervals of 0", {"min-interval 0", "max-interval 0"}, error, accepted, unparsable},
        {"intervals of 19 ms", {"min-interval 19", "max-interval 19"}, error, accepted, unparsable},
        {"intervals of 20 ms", {"min-interval 20", "max-interval 20"}, none, accepted, accepted},
        {"intervals of 100 ms", {"min-interval 100", "max-interval 100"}, none, accepted, accepted},
        {"a shortest interval alone", {"min-interval 100"}, error, accepted, unparsable},
        {"a longest interval alone", {"max-interval 100"}, none, accepted, accepted},
        {"a shortest interval above the longest",
         {"min-interval 200", "max-interval 100"},
         error,
         accepted,
         unparsable},
        {"the longest interval", {"max-interval 10485759"}, none, accepted, accepted},
        {"an interval longer than that", {"max-interval 10485760"}, error, accepted, unparsable},
        {"a transmit power of -128", {"tx-power -128"}, error, accepted, unparsable},
        {"a transmit power of -127", {"tx-power -127"}, none, accepted, accepted},
        {"a transmit power of 0", {"tx-power 0"}, none, accepted, accepted},
        {"a transmit power of 20", {"tx-power 20"}, none, accepted, accepted},
        {"a transmit power of 21", {"tx-power 21"}, error, accepted, unparsable},
        {"a transmit power of 127", {"tx-power 127"}, error, accepted, unparsable},
    };
}

QList<AdvertisementCase> otherCases()
{
    return {
        {"a name and a service", {"name Check", "uuids 180d"}, none, accepted, accepted},
        {"no property but the type", {"type 0"}, none, accepted, accepted},
        {"an empty type", {"type 7"}, error, unparsable, unparsable},
        {"UUIDs in every form",
         {"uuids 180d 0x180f 0000180a-0000-1000-8000-00805f9b34fb"},
         none,
         accepted,
         accepted},
        {"an invalid UUID", {"uuids nonsense"}, error, unparsable, unparsable},
        {"manufacturer data without a byte", {"manufacturer ffff"}, error, unparsable, unparsable},
        {"service data", {"service-data 180d 0102"}, none, accepted, accepted},
        {"service data without a byte", {"service-data 180d"}, error, unparsable, unparsable},
        {"service data for an invalid UUID", {"service-data nonsense 01"}, error, unparsable, unparsable},
        {"discoverable", {"discoverable 1"}, none, accepted, accepted},
        {"discoverable and not connectable", {"type 1", "discoverable 1"}, error, unparsable, unparsable},
        {"a name of 28 bytes beside 31 others",
         {"name " + QString(28, 'n'), block(31)},
         none,
         accepted,
         accepted},
    };
}

void expectFound(const QStringList& problems, const QString& found, const QString& what)
{
    Expect::that(worst(problems) == found, what + ": found " + (found == none ? "nothing" : found),
                 Expect::text(problems));
}

/** Builds it, asks for its problems, and hands it over. */
void judge(CheckEnvironment& environment, Peripheral& peripheral, const AdvertisementCase& judged,
           const QString& exported, int number)
{
    const QString name = "adv" + QString::number(number);
    peripheral.tell("advertisement " + name + " /com/example/check/" + name + ' ' + exported);
    for (const QString& property : judged.properties) {
        peripheral.tell("set " + name + ' ' + property);
    }
    const QStringList problems = peripheral.problems(name, environment.advertisingLimit());
    expectFound(problems, judged.found, QString("advertisement with ") + judged.what);
    peripheral.tell("add " + name);
    const QString text = peripheral.answer("registerAdv", number);
    peripheral.tell("remove " + name);
    const QString expected = environment.version() == "5.66" ? judged.in566 : judged.in582;
    Expect::equal(text, expected,
                  QString("advertisement with ") + judged.what +
                      (expected.isEmpty() ? ": taken" : ": refused"));
    if (!text.isEmpty()) {
        environment.recover();
    }
}

/** Two blocks of the scan response that fill so many bytes each. */
QStringList halves(int first, int second)
{
    return {"scan-response 24 " + QString("ab").repeated(first - 2),
            "scan-response 26 " + QString("cd").repeated(second - 2)};
}

/** Payloads on both sides of 31 bytes, however they are made up. */
QList<AdvertisementCase> sizeCases(int limit)
{
    // Beyond 31 bytes it is for the controller to say. 5.66 does not ask it, but leaves flags and power to
    // the kernel, which does.
    const bool isExtended = limit > 31;
    const QString longFound = isExtended ? warning : error;
    const QString longIn582 = isExtended ? accepted : tooLong;
    const QStringList composed{"discoverable 1", "appearance 0340", "include-tx-power 1", "uuids 180d"};
    const QStringList long128{"uuids 6e610001-31c7-4b1a-9f0e-1a3cf2a7d001 180d 180f"};
    return {
        {"31 bytes in one block", {block(31)}, none, accepted, accepted},
        {"32 bytes in one block", {block(32)}, longFound, unparsable, isExtended ? accepted : unparsable},
        {"31 bytes with flags, appearance, power and a UUID", composed + QStringList{block(17)}, none,
         accepted, accepted},
        {"32 bytes with flags, appearance, power and a UUID", composed + QStringList{block(18)}, longFound,
         longIn582, longIn582},
        {"31 bytes with UUIDs of two sizes", long128 + QStringList{block(7)}, none, accepted, accepted},
        {"32 bytes with UUIDs of two sizes", long128 + QStringList{block(8)}, longFound, tooLong, longIn582},
        {"31 bytes of service and raw data",
         {"service-data 180d " + QString("ab").repeated(10), "data 26 " + QString("cd").repeated(15)},
         none,
         accepted,
         accepted},
        {"31 bytes of scan response", halves(15, 16), none, accepted, accepted},
        {"32 bytes of scan response", halves(16, 16), isExtended ? none : error, accepted, longIn582},
        {"a name of 60 bytes", {"name " + QString(60, 'n')}, isExtended ? none : warning, accepted, accepted},
        {"32 bytes of service and raw data",
         {"service-data 180d " + QString("ab").repeated(10), "data 26 " + QString("cd").repeated(16)},
         longFound,
         tooLong,
         longIn582},
    };
}

void checkAdvertisements(CheckEnvironment& environment)
{
    Peripheral peripheral("check-advertisements");
    int number = 0;
    judge(environment, peripheral, {"all properties shown", {"name Check"}, error, unparsable, unparsable},
          "all", ++number);
    for (const AdvertisementCase& judged :
         otherCases() + radioCases() + rawCases() + sizeCases(environment.advertisingLimit())) {
        judge(environment, peripheral, judged, "set", ++number);
    }
}

struct ApplicationCase
{
    QStringList lines;
    QString found;
    QString answer;
};

QList<ApplicationCase> applicationCases()
{
    const QString serviceLine = "service s " + SceneTree::uuid(1) + " primary";
    const QString characteristicLine = "characteristic c s " + SceneTree::uuid(2) + " read";
    const QString unfit = "Failed to create entry in database";
    const QString malformed = "No valid service object found";
    return {
        {{}, error, "No object received"},
        {{"service s 1800 primary"}, error, unfit},
        {{"service s 00001801-0000-1000-8000-00805f9b34fb primary"}, error, unfit},
        {{"service s nonsense primary"}, error, unfit},
        {{serviceLine, "characteristic c s nonsense read"}, error, unfit},
        {{serviceLine, characteristicLine, "descriptor d c nonsense read"}, error, unfit},
        {{serviceLine, "characteristic c s " + SceneTree::uuid(2) + " none"}, error, malformed},
        {{serviceLine, characteristicLine, "descriptor d c 2901 none"}, error, malformed},
        {{serviceLine, characteristicLine, "descriptor d c 2901 read"}, none, accepted},
        {{serviceLine, characteristicLine, "descriptor d c 2902 read,write"}, warning, accepted},
        {{serviceLine, "characteristic c s " + SceneTree::uuid(2) + " notify"}, warning, accepted},
        {{serviceLine, "characteristic c s " + SceneTree::uuid(2) + " notify", "value c 01"}, none, accepted},
        {{"service s 180f primary", "service t 0x180a secondary"}, none, accepted},
        {{serviceLine, "service t " + SceneTree::uuid(1) + " primary"}, error, accepted},
        {{serviceLine}, none, accepted},
    };
}

void checkApplications()
{
    int number = 0;
    for (const ApplicationCase& judged : applicationCases()) {
        const QString name =
            "application: " + (judged.lines.isEmpty() ? "without a service" : judged.lines.last());
        Peripheral peripheral("check-application" + QString::number(++number));
        peripheral.tell("application /com/example/check com.example.Check");
        peripheral.tell(judged.lines);
        const QStringList problems = peripheral.problems("application");
        expectFound(problems, judged.found, name);
        peripheral.tell("add application");
        Expect::equal(peripheral.answer("registerApp", 1), judged.answer,
                      name + (judged.answer == accepted ? ": taken" : ": refused"));
        if (judged.answer == accepted && judged.lines.size() == 1) {
            peripheral.tell("register application");
            Expect::equal(peripheral.answer("registerApp", 2), "Already Exists",
                          "application: registered twice");
        }
    }
}

} // namespace

void runRegistrationChecks(CheckEnvironment& environment)
{
    checkApplications();
    checkAdvertisements(environment);
}
