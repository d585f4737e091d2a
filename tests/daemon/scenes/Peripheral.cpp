#include "Peripheral.h"

#include "Expect.h"

#include <QCoreApplication>
#include <QRegularExpression>

Peripheral::Peripheral(const QString& name)
    : Child(name, QCoreApplication::applicationDirPath() + "/daemon-peripheral", {}, Output::LinesToUs)
{
    Expect::require([this] { return m_ready; }, name + " to be ready");
}

void Peripheral::tell(const QString& command)
{
    ++m_commands;
    write(command);
    Expect::require([&] { return m_answers == m_commands || !running(); },
                    "the peripheral to do: " + command);
    if (!running()) {
        throw Expect::Impossible{"the peripheral has ended"};
    }
    if (!m_wrong.isEmpty()) {
        throw Expect::Impossible{command + ": " + m_wrong};
    }
}

void Peripheral::begin(const QString& command)
{
    ++m_commands;
    write(command);
    flush();
}

void Peripheral::tell(const QStringList& commands)
{
    for (const QString& command : commands) {
        tell(command);
    }
}

void Peripheral::look()
{
    m_tree.clear();
    m_paths.clear();
    tell("tree");
}

QStringList Peripheral::problems(const QString& name, int advertisingLimit)
{
    m_problems.clear();
    tell("problems " + name + ' ' + QString::number(advertisingLimit));
    return m_problems;
}

QString Peripheral::answer(const QString& step, int number) const
{
    const QRegularExpression line("D-Bus call (?:success: " + step + "|from '" + step + "' failed: (.*))\n");
    QStringList answers;
    Expect::require(
        [&] {
            answers.clear();
            auto match = line.globalMatch(text());
            while (match.hasNext()) {
                answers << match.next().captured(1);
            }
            return answers.size() >= number;
        },
        "an answer to " + step);
    return answers.at(number - 1);
}

QStringList Peripheral::told(const QString& what) const
{
    QStringList rests;
    for (const QString& line : m_lines) {
        if (line == what || line.startsWith(what + ' ')) {
            rests << line.mid(what.size() + 1);
        }
    }
    return rests;
}

int Peripheral::succeeded(const QString& step) const
{
    return count("D-Bus call success: " + step + '\n');
}

void Peripheral::awaitRegistration(const QStringList& steps, int times)
{
    for (const QString& step : steps) {
        if (!Expect::waitFor([&] { return succeeded(step) >= times; })) {
            const QStringList failed = text().split('\n').filter("from '" + step + "' failed");
            throw Expect::Impossible{"timed out waiting for " + step + " to succeed " +
                                     QString::number(times) + " time(s); " +
                                     (failed.isEmpty() ? "no failure is logged" : failed.last())};
        }
    }
}

void Peripheral::onLine(const QString& line)
{
    m_lines << line;
    const QStringList words = line.split(' ');
    const QString name = words.value(1);
    if (words.first() == "done") {
        ++m_answers;
    } else if (words.first() == "ready") {
        m_ready = true;
    } else if (words.first() == "wrong") {
        m_wrong = line;
        ++m_answers;
    } else if (words.first() == "written") {
        m_written[name] << QByteArray::fromHex(words.value(2).toLatin1());
    } else if (words.first() == "asked") {
        ++m_asked[name];
    } else if (words.first() == "notifying") {
        m_notifying[name] << words.value(2);
    } else if (words.first() == "problem") {
        m_problems << line.section(' ', 1);
    } else if (words.first() == "tree") {
        m_paths[words.value(3)] = words.value(2);
        // What a descriptor may be used for is nothing that a phone can see.
        const QStringList details = name == "descriptor" ? words.mid(5) : words.mid(4);
        m_tree << (QStringList{name, words.value(3)} + details).join(' ');
    }
}
