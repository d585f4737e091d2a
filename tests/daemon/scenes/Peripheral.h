#pragma once

#include "Child.h"

#include <QMap>
#include <QStringList>

/** The program under test: daemon-peripheral, which uses the library as it is told. */
class Peripheral : public Child
{
public:
    /** Starts it and waits until it can be told something. */
    explicit Peripheral(const QString& name = "peripheral");

    /** Gives it a command and waits until it is done; the scene ends where the program finds it wrong. */
    void tell(const QString& command);
    /** The same for several. */
    void tell(const QStringList& commands);
    /** Gives it a command at once, and does not wait; the next tell() waits for both. */
    void begin(const QString& command);

    /** The values that a peer wrote, in order: what the object's value was after each write. */
    QList<QByteArray> written(const QString& name) const { return m_written.value(name); }
    /** How often the read callback was called. */
    int asked(const QString& name) const { return m_asked.value(name); }
    /** What notifyStateChanged said, in order. */
    QStringList notifying(const QString& name) const { return m_notifying.value(name); }
    /** What it printed that begins with this word and name, in order and without them. */
    QStringList told(const QString& what) const;
    /** Everything that it printed, in order. */
    QStringList lines() const { return m_lines; }
    /** The tree by the library's own account, in Phone::tree()'s words; look() was called before. */
    QStringList tree() const { return m_tree; }
    /** The object paths by UUID. */
    QMap<QString, QString> paths() const { return m_paths; }
    /** Asks for the tree anew. */
    void look();
    /** What the library finds wrong with the application ("application") or an advertisement, for a
     * controller that can broadcast so many bytes: "error: WHERE: ..." and "warning: ...". */
    QStringList problems(const QString& name, int advertisingLimit = 31);
    /** Returns when everything that it has printed until now is known here. */
    void settle() { tell("nothing"); }

    /** Waits for the daemon's answer to the call of this step with the number, from 1: its error text, or
     * empty. */
    QString answer(const QString& step, int number) const;
    /** How many calls of this step ("registerApp", ...) have been answered well. */
    int succeeded(const QString& step) const;
    /** Waits until every step in the list has been answered well at least so many times. */
    void awaitRegistration(const QStringList& steps = {"registerApp", "registerAdv"}, int times = 1);

protected:
    void onLine(const QString& line) override;

private:
    bool m_ready = false;
    int m_commands = 0;
    int m_answers = 0;
    QString m_wrong;
    QMap<QString, QList<QByteArray>> m_written;
    QMap<QString, int> m_asked;
    QMap<QString, QStringList> m_notifying;
    QStringList m_lines;
    QStringList m_tree;
    QMap<QString, QString> m_paths;
    QStringList m_problems;
};
