#pragma once

#include <QtGlobal>

#include <atomic>

// When a verification's workers should read files ahead of their checks,
// and which: shared by the workers, who report each file they checked and
// claim the files to read ahead. Reading ahead keeps the disk busy while the
// workers hash, but costs time when the files are in the cache, so it starts
// only once enough files in a row came in slower than memory gives them.
class ReadAhead
{
public:
    // How many files ahead of the one being checked are on their way in.
    static constexpr qsizetype Window = 4;

    // A file of the manifest's `bytes` took `nanoseconds` to check.
    void recordCheck(qint64 nanoseconds, qint64 bytes);
    bool isActive() const;

    // The next file to read ahead for a worker about to check `index` of
    // `count`, or -1 when the window after it is claimed already. Each file
    // is handed out once, and never one at or before a file being checked.
    qsizetype claim(qsizetype index, qsizetype count);

private:
    std::atomic<int> m_slowInARow {0};
    std::atomic<bool> m_active {false};
    // Files below this have been handed out or were being checked.
    std::atomic<qsizetype> m_claimedEnd {0};
};
