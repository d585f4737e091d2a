#include "CommandLine.h"

#include <QCommandLineParser>

namespace simulator {

namespace {

const char* const Description =
    "Plays the Bluetooth daemon of BlueZ and a connected phone on a D-Bus bus, so that you can try Bluetooth "
    "LE\n"
    "peripherals without Bluetooth.\n\n"
    "Control it over the same bus: service org.plim.BluezSimulator, object /org/plim/BluezSimulator,\n"
    "interface org.plim.BluezSimulator1; 'busctl introspect' lists its methods.\n"
    "Prints one line when it is ready, and ends on SIGTERM, SIGINT, the method Quit or the end of the bus.\n"
    "Exit codes: 0 ended as asked or with the bus, 1 wrong arguments, 2 bus not reachable, 3 name taken.";

const char* const AddressHelp =
    "The bus to appear on: a D-Bus address, \"session\" or \"system\". Default: the address in "
    "DBUS_SYSTEM_BUS_ADDRESS. Without either it does not start, so that it never appears on the machine's "
    "system bus by accident.";

} // namespace

QString CommandLine::parse(const QStringList& arguments)
{
    const QCommandLineOption addressOption(QStringLiteral("address"), QLatin1String(AddressHelp),
                                           QStringLiteral("bus"));
    const QCommandLineOption adapterOption(
        QStringLiteral("adapter"), QStringLiteral("An adapter to offer; may be repeated. Default: hci0."),
        QStringLiteral("name"));
    const QCommandLineOption absentOption(
        QStringLiteral("absent"),
        QStringLiteral("Start without org.bluez, until the method Appear is called."));
    const QCommandLineOption versionOption(
        QStringLiteral("bluez"),
        QStringLiteral(
            "The BlueZ version whose rules for advertisements and errors are applied: 5.66 or 5.82. Default: "
            "5.82."),
        QStringLiteral("version"), QStringLiteral("5.82"));
    const QCommandLineOption acceptOption(QStringLiteral("accept-everything"),
                                          QStringLiteral("Accept any advertisement."));
    const QCommandLineOption verboseOption(QStringLiteral("verbose"),
                                           QStringLiteral("Print every call that org.bluez receives."));
    QCommandLineParser parser;
    parser.setApplicationDescription(QLatin1String(Description));
    const QCommandLineOption helpOption = parser.addHelpOption();
    parser.addOptions(
        {addressOption, adapterOption, absentOption, versionOption, acceptOption, verboseOption});
    if (!parser.parse(arguments)) {
        return parser.errorText();
    }
    if (parser.isSet(helpOption)) {
        parser.showHelp();
    }
    if (!parser.positionalArguments().isEmpty()) {
        return QStringLiteral("unexpected argument '%1', see --help")
            .arg(parser.positionalArguments().constFirst());
    }
    const QString versionText = parser.value(versionOption);
    if (versionText != QLatin1String("5.66") && versionText != QLatin1String("5.82")) {
        return QStringLiteral("--bluez accepts 5.66 and 5.82, not '%1'").arg(versionText);
    }
    address = parser.isSet(addressOption) ? parser.value(addressOption)
                                          : qEnvironmentVariable("DBUS_SYSTEM_BUS_ADDRESS");
    adapters =
        parser.isSet(adapterOption) ? parser.values(adapterOption) : QStringList{QStringLiteral("hci0")};
    version = versionText == QLatin1String("5.66") ? BluezVersion::Bluez566 : BluezVersion::Bluez582;
    isAbsent = parser.isSet(absentOption);
    acceptsEverything = parser.isSet(acceptOption);
    isVerbose = parser.isSet(verboseOption);
    return address.isEmpty() ? QStringLiteral("no bus: use --address or set DBUS_SYSTEM_BUS_ADDRESS")
                             : QString();
}

} // namespace simulator
