#include <QtTest>
class tst_subscribers : public QObject { Q_OBJECT };
QTEST_GUILESS_MAIN(tst_subscribers)
#include "tst_subscribers.moc"
