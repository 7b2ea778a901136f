#pragma once

#include <QString>

#include <optional>

namespace Platform
{
    // The full executable path of the first running process whose file name
    // is exactly `fileName` (case-sensitive) and whose path can be read.
    // Processes that cannot be inspected, another user's for instance, are
    // passed over. Empty when there is no such process.
    std::optional<QString> firstProcessImagePath(const QString &fileName);

    // Whether a process image path names the file at `expectedPath`, both
    // taken as this system's file system compares them: links resolved and
    // letter case significant where the file system makes it so.
    bool isSameExecutable(const QString &imagePath, const QString &expectedPath);
}
