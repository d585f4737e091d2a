#pragma once

#include <QString>

namespace simulator {

/** Why a call is answered with an error: the error's name and text. An empty one means that nothing is wrong.
 */
struct Refusal
{
    QString name;
    QString message;

    explicit operator bool() const { return !name.isEmpty(); }

    static Refusal failed(const QString& message);
    static Refusal invalidArguments();
    static Refusal alreadyExists();
    static Refusal doesNotExist();
    static Refusal notPermitted(const QString& message);
};

} // namespace simulator
