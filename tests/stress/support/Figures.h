#pragma once

#include <QString>

/** What a process holds, so that a test can say that it holds no more than before. */
struct Figures
{
    qint64 heap;     ///< bytes in live allocations, exact under AddressSanitizer
    qint64 resident; ///< bytes of resident memory; under AddressSanitizer mostly its own
    int descriptors; ///< open file descriptors
    int objects;     ///< QObjects of the calling thread
    int watchers;    ///< those of them that watch pending D-Bus calls

    /** "heap 1234 resident 5678 descriptors 9 objects 10 watchers 0" */
    QString text() const;

    /** Of the calling process; objects and watchers are 0 unless followObjects() was called before. */
    static Figures now();
};

/** Follows all objects that are made from now on. */
void followObjects();

/** Has the logger "Ble" build every line, whatever its level, and write none. */
void buildEveryLogLine();

/** 1, or what time limits grow by in a build with sanitizers. */
int slowness();

/** How many bytes of the heap's figure say nothing: without a sanitizer they include what glibc keeps at
 * hand. */
qint64 heapNoise();
