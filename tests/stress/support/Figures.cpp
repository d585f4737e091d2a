#include "Figures.h"

#include <QDBusPendingCallWatcher>
#include <QDir>
#include <QFile>
#include <QMutex>
#include <QSet>
#include <QThread>

#include <log4cplus/logger.h>
#include <log4cplus/nullappender.h>

#include <cstddef>

#include <malloc.h>
#include <unistd.h>

#ifdef __SANITIZE_ADDRESS__
// Of the sanitizer's own library; Debian's g++ comes without its header.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#endif

// Qt's hook for tools that follow every object; indices 3 and 4 hold what to call when one is made and when
// one ends.
extern "C" Q_CORE_EXPORT quintptr qtHookData[];

namespace {

QMutex objectsMutex;

QSet<QObject*>& objects()
{
    static auto* all = new QSet<QObject*>;
    return *all;
}

void objectMade(QObject* object)
{
    const QMutexLocker lock(&objectsMutex);
    objects().insert(object);
}

void objectEnds(QObject* object)
{
    const QMutexLocker lock(&objectsMutex);
    objects().remove(object);
}

qint64 heapInUse()
{
#ifdef __SANITIZE_ADDRESS__
    return qint64(__sanitizer_get_current_allocated_bytes());
#else
    const struct mallinfo2 info = mallinfo2();
    return qint64(info.uordblks) + qint64(info.hblkhd);
#endif
}

qint64 residentBytes()
{
    QFile statm(QStringLiteral("/proc/self/statm"));
    if (!statm.open(QIODevice::ReadOnly)) {
        return -1;
    }
    return statm.readAll().split(' ').value(1).toLongLong() * sysconf(_SC_PAGESIZE);
}

} // namespace

QString Figures::text() const
{
    return QStringLiteral("heap %1 resident %2 descriptors %3 objects %4 watchers %5")
        .arg(heap)
        .arg(resident)
        .arg(descriptors)
        .arg(objects)
        .arg(watchers);
}

Figures Figures::now()
{
    Figures figures = {0, 0, 0, 0, 0};
    {
        const QMutexLocker lock(&objectsMutex);
        for (const QObject* object : qAsConst(::objects())) {
            if (object->thread() == QThread::currentThread()) {
                ++figures.objects;
                figures.watchers += qobject_cast<const QDBusPendingCallWatcher*>(object) ? 1 : 0;
            }
        }
    }
    figures.descriptors = int(QDir(QStringLiteral("/proc/self/fd"))
                                  .entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::System)
                                  .size());
    figures.resident = residentBytes();
    figures.heap = heapInUse();
    return figures;
}

void followObjects()
{
    qtHookData[3] = reinterpret_cast<quintptr>(&objectMade);
    qtHookData[4] = reinterpret_cast<quintptr>(&objectEnds);
}

void buildEveryLogLine()
{
    auto logger = log4cplus::Logger::getInstance("Ble");
    logger.addAppender(log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));
    logger.setAdditivity(false);
    logger.setLogLevel(log4cplus::TRACE_LOG_LEVEL);
}

qint64 heapNoise()
{
#ifdef __SANITIZE_ADDRESS__
    return 0;
#else
    return 768 << 10;
#endif
}

int slowness()
{
#ifdef __SANITIZE_ADDRESS__
    return 10;
#else
    return 1;
#endif
}
