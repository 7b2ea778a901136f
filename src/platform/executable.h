#pragma once

#include <QString>

namespace Platform
{
    // Makes a downloaded program startable. Downloads arrive as plain data
    // files; where running a file takes a permission, it is granted here.
    void makeExecutable(const QString &path);
}
