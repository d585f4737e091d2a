#pragma once

#include <QString>

#include <cstdio>
#include <cstdlib>

/** Ends the process, so that libFuzzer keeps the input, unless the condition holds. */
template <typename Text>
void require(bool condition, const Text& text)
{
    if (!condition) {
        const QString finding = text();
        std::fprintf(stderr, "FINDING: %s\n", qUtf8Printable(finding));
        std::abort();
    }
}

/** Says what is about to be done where PLIM_FUZZ_VERBOSE is set: what hangs or crashes cannot say it
 * afterwards. */
template <typename Text>
void announce(const Text& text)
{
    static const bool verbose = qEnvironmentVariableIsSet("PLIM_FUZZ_VERBOSE");
    if (verbose) {
        const QString step = text();
        std::fprintf(stderr, "%s\n", qUtf8Printable(step));
    }
}
