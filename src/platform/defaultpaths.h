#pragma once

#include <QString>

namespace Platform
{
    // Which member of a configuration's "defaultPaths" holds the install path
    // template for this system.
    QString defaultPathsKey();

    // The folder that "{appData}" stands for in a path template: the user's
    // own data folder, without the application's names below it, since the
    // templates add those themselves.
    QString appDataLocation();
}
