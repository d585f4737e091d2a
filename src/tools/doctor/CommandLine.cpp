#include "CommandLine.h"

#include <QCommandLineParser>

namespace {

const char* const Description =
    "Looks for what keeps this machine from being a Bluetooth LE peripheral: the system bus, the Bluetooth\n"
    "daemon, its adapters, what they can do, and what the bus lets this user do. One line for each finding;\n"
    "each problem comes with one cure.\n\n"
    "It only looks, unless --name, --serve or --advertise asks for a trial. An answer is waited for as long "
    "as\n"
    "--timeout says, and what is waited for is told on standard error.\n"
    "Exit codes: 0 no problem, 1 a problem was found, 2 wrong arguments.";

constexpr int LongestSeconds = 3600;

/** Takes a number of seconds into milliseconds; returns what is wrong with it or an empty text. */
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
        {"name", "Try to own this bus name, and whether the daemon can call a program that owns it.",
         "bus name"},
        {"advertise", "Try to advertise, and tell what a phone should then see."},
        {"serve", "Try to serve a characteristic, and tell what a phone should then see."},
        {"seconds", "How long to advertise and to serve; Ctrl+C ends it earlier. Default: 10.", "number",
         "10"},
        {"timeout", "How many seconds to wait for an answer. Default: 10.", "number", "10"},
        {"json", "Print the findings as JSON, at the end."},
        {"verbose", "Print the library's log, too, on standard error."},
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
    advertises = parser.isSet("advertise");
    serves = parser.isSet("serve");
    isJson = parser.isSet("json");
    isVerbose = parser.isSet("verbose");
    const QString wrongSeconds = takeSeconds("seconds", parser.value("seconds"), trialMs);
    return wrongSeconds.isEmpty() ? takeSeconds("timeout", parser.value("timeout"), timeoutMs) : wrongSeconds;
}
