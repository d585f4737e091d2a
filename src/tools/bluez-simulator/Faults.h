#pragma once

#include <QMap>
#include <QString>

namespace simulator {

/** How org.bluez answers the calls of one method. */
struct Answer
{
    enum Mode
    {
        Normal,
        Error,
        Late,
        Never
    };

    Mode mode = Normal;
    QString errorName;
    QString errorMessage;
    int delayMs = 0;
};

/** The answers that SetAnswer has set, by method name. */
class Faults
{
public:
    /**
     * Sets how to answer a method from now on. mode is "normal", "error", "late" or "never".
     * Returns an error text and changes nothing if the arguments are wrong; otherwise an empty text.
     */
    QString set(const QString& member, const QString& mode, const QString& errorName,
                const QString& errorMessage, uint delayMs);

    /** How to answer a method. */
    Answer answerTo(const QString& member) const { return m_answers.value(member); }

private:
    QMap<QString, Answer> m_answers;
};

} // namespace simulator
