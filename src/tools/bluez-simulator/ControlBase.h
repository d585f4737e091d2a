#pragma once

#include "DelayedReply.h"

#include <QDBusContext>
#include <QObject>

namespace simulator {

class Daemon;
class Simulator;

/** What the objects of the control interface share. */
class ControlBase : public QObject, protected QDBusContext
{
    Q_OBJECT

protected:
    explicit ControlBase(Simulator& simulator, QObject* parent = nullptr)
        : QObject(parent), m_simulator(simulator)
    {
    }

    Simulator& simulator() const { return m_simulator; }

    /** The reply to the call that is being made, for later. */
    DelayedReplyPtr later();

    /** Answers the call with an error where the text is not empty. */
    void require(const QString& error);

    /** The daemon; answers the call with an error where it is not on the bus, and is null then. */
    Daemon* presentDaemon();

private:
    Simulator& m_simulator;
};

} // namespace simulator
