#include <QtTest>
class tst_peripheral_tree : public QObject { Q_OBJECT };
QTEST_GUILESS_MAIN(tst_peripheral_tree)
#include "tst_peripheral_tree.moc"
