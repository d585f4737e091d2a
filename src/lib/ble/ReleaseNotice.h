#pragma once

#include <QObject>

/** Emits a signal when BlueZ releases an advertisement; the advertisement itself has no signal for that.
 * Internal: not installed. */
class ReleaseNotice : public QObject
{
    Q_OBJECT

signals:
    void released();
};
