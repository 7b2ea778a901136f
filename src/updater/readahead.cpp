#include "updater/readahead.h"

#include <algorithm>

namespace
{
    // Slow is longer than this and under two bytes a nanosecond: the cache
    // gives several times that even on a busy machine, an open alone takes
    // a few microseconds, and a disk takes longer than this for any read.
    const qint64 SlowCheckNs = 100 * 1000;
    // One slow file may be a worker that lost its core for a moment.
    const int SlowChecksToStart = 4;
}

void ReadAhead::recordCheck(qint64 nanoseconds, qint64 bytes)
{
    if (nanoseconds <= SlowCheckNs || nanoseconds <= bytes / 2) {
        m_slowInARow = 0;
        return;
    }
    if (++m_slowInARow >= SlowChecksToStart)
        m_active = true;
}

bool ReadAhead::isActive() const
{
    return m_active.load(std::memory_order_relaxed);
}

qsizetype ReadAhead::claim(qsizetype index, qsizetype count)
{
    const qsizetype end = std::min(index + 1 + Window, count);
    qsizetype next = m_claimedEnd.load();
    for (;;) {
        const qsizetype claimed = std::max(next, index + 1);
        if (claimed >= end)
            return -1;
        if (m_claimedEnd.compare_exchange_weak(next, claimed + 1))
            return claimed;
    }
}
