#include "CommandLine.h"

#include <QCommandLineParser>

namespace doctor {

namespace {

const char* const Description =
    "Checks why this machine cannot be a Bluetooth LE peripheral: the system bus, the Bluetooth daemon, its\n"
    "adapters and what they support, and what the bus allows this user to do. Each finding is one line; "
    "each\n"
    "problem comes with one remedy.\n\n"
    "It registers nothing and owns no name without --name, --serve or --advertise. While it waits for an\n"
    "answer, at most as long as --timeout says, it prints what it waits for on standard error.\n"
    "Exit codes: 0 no problem, 1 a problem was found, 2 wrong arguments.";

constexpr int LongestSeconds = 3600;

/** Converts a number of seconds to milliseconds; returns an error text, or an empty one. */
QString takeSeconds(const QString& option, const QString& text, int& milliseconds)
{
    bool isNumber = false;
    const int seconds = text.toInt(&isNumber);
    if (!isNumber || seconds < 1 || seconds > LongestSeconds) {
        return QString("--%1 takes 1 to %2 seconds, not '%3'").arg(option).arg(LongestSeconds).arg(text);
    }
    milliseconds = seconds * 1000;
    return {};
}

} // namespace

QString CommandLine::parse(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(Description);
    parser.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsOptions);
    parser.addOptions({
        {"name", "Try to own this bus name, and check whether the daemon can call its owner.", "bus name"},
        {"config", "The configuration of bluetoothd. Default: /etc/bluetooth/main.conf.", "file"},
        {"local-name", "The name that your program advertises, to compare it with the adapter's.", "name"},
        {"advertise", "Register an advertisement, and print what a phone should see."},
        {"serve", "Register a readable characteristic, and print what a phone should see."},
        {"seconds", "How many seconds to keep them registered; Ctrl+C ends this earlier. Default: 10.",
         "number", "10"},
        {"timeout", "How many seconds to wait for an answer. Default: 10.", "number", "10"},
        {"json", "Print the findings as JSON, at the end."},
        {"verbose", "Also print the library's log, on standard error."},
    });
    const QCommandLineOption helpOption = parser.addHelpOption();
    const QCommandLineOption versionOption = parser.addVersionOption();
    if (!parser.parse(arguments)) {
        return parser.errorText();
    }
    if (parser.isSet(helpOption)) {
        parser.showHelp();
    }
    if (parser.isSet(versionOption)) {
        parser.showVersion();
    }
    if (!parser.positionalArguments().isEmpty()) {
        return QString("unexpected argument '%1'").arg(parser.positionalArguments().constFirst());
    }
    name = parser.value("name");
    configuration = parser.value("config");
    localName = parser.value("local-name");
    advertises = parser.isSet("advertise");
    serves = parser.isSet("serve");
    isJson = parser.isSet("json");
    isVerbose = parser.isSet("verbose");
    const QString wrongSeconds = takeSeconds("seconds", parser.value("seconds"), trialMs);
    return wrongSeconds.isEmpty() ? takeSeconds("timeout", parser.value("timeout"), timeoutMs) : wrongSeconds;
}

} // namespace doctor
