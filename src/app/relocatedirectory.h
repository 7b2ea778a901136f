#pragma once

#include <QString>

// Moves the contents of source into dest, or deletes source when dest is
// empty, leaving alone the comma-separated relative paths in ignore. Every
// entry is tried even after a failure; true only if nothing failed.
bool relocateDirectory(QString source, QString dest, const QString &ignore);
