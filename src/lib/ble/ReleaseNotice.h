#pragma once

#include <QObject>

/** Tells inside the library that BlueZ released an advertisement, of which the advertisement's own signals
 * say nothing. Internal: not installed. */
class ReleaseNotice : public QObject
{
    Q_OBJECT

signals:
    void released();
};
