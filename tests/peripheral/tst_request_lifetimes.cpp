#include <QtTest>
class tst_request_lifetimes : public QObject { Q_OBJECT };
QTEST_GUILESS_MAIN(tst_request_lifetimes)
#include "tst_request_lifetimes.moc"
