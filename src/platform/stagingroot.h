#pragma once

#include <QString>

namespace Platform
{
    // The folder under which downloads wait to be installed. It must outlive
    // a reboot, since an interrupted update resumes from what it holds.
    QString stagingRoot();

    // Creates `path` with its parents so that only this user may enter the
    // last folder, or accepts it as it is if it already is such a folder.
    // False when it is a link, belongs to another account, or cannot be
    // made private: nothing may then be written below it.
    bool makePrivateDirectory(const QString &path);
}
