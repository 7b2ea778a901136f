#pragma once

#include <QString>

namespace Platform
{
    // Which member of a configuration's "defaultPaths" holds the install path
    // template for this system.
    QString defaultPathsKey();
}
