#pragma once

#include <QString>
#include <QStringList>

#include <functional>

/** What a scene expects: one line of output for each expectation. */
namespace Expect {

/** Ends a scene: nothing that follows would mean anything. */
struct Impossible
{
    QString reason;
};

/** Ends a scene that cannot run where it is. */
struct Unsupported
{
    QString reason;
};

/** Ends a scene that shows nothing any more: what plays the hardware is gone. */
struct Spoilt
{
};

/** Every wait asks this from now on, and ends the scene as Spoilt when it is true. */
void setSpoilt(std::function<bool()> isSpoilt);

/** Prints the line; a failed expectation is remembered, and the scene goes on. */
void that(bool condition, const QString& what, const QString& instead = {});

inline QString text(const QString& value)
{
    return '"' + value + '"';
}
inline QString text(const char* value)
{
    return '"' + QString(value) + '"';
}
inline QString text(const QByteArray& value)
{
    return QString::number(value.size()) + " bytes " + QString::fromLatin1(value.left(24).toHex());
}
inline QString text(const QStringList& value)
{
    return '(' + value.join(" | ") + ')';
}
inline QString text(bool value)
{
    return value ? "yes" : "no";
}
inline QString text(int value)
{
    return QString::number(value);
}
inline QString text(qint64 value)
{
    return QString::number(value);
}

template <typename Actual, typename Expected>
void equal(const Actual& actual, const Expected& expected, const QString& what)
{
    that(actual == expected, what, text(actual) + " instead of " + text(expected));
}

/** Expects both lists to hold the same, and prints what is missing and what is too many. */
void same(const QStringList& actual, const QStringList& expected, const QString& what);

/** Prints something that is found out, not expected. */
void note(const QString& text);

/** Lets the event loop run until the condition holds; whether it does within the time. */
bool waitFor(const std::function<bool()>& condition, int seconds = 60);

/** Expects the condition to hold at last. */
void eventually(const std::function<bool()>& condition, const QString& what,
                const std::function<QString()>& instead = {}, int seconds = 60);

/** Ends the scene unless the condition holds at last; `what` completes "timed out waiting for". */
void require(const std::function<bool()>& condition, const QString& what, int seconds = 60);

int failures();

} // namespace Expect
