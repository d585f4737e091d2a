#pragma once

#include <QCommandLineParser>

/** The command line of a load: how much of it there is to be, and what determines its random choices. */
class LoadOptions : public QCommandLineParser
{
public:
    /** @param seed  what --seed is if it is not given */
    explicit LoadOptions(unsigned seed, const QString& description = QString());

    /** Adds a number of something. @param usual  what it is if it is not given */
    void addCount(const QString& name, const QString& description, qint64 usual);

    /** The value of an option of addCount(). If it is no number of 1 and more, the program ends with exit
     * code 2. Call process() before. */
    qint64 count(const QString& name) const;

    /** What determines all random choices. Ends the program if it is no number, as count() does. */
    unsigned seed() const;

private:
    template <typename Number>
    Number number(const QString& name, Number least) const;
};
