#pragma once

#include <QString>

// Moves the contents of source into dest, or deletes source when dest is
// empty, leaving alone the comma-separated relative paths in ignore. Every
// entry is tried even after a failure; true only if nothing failed. Links and
// special files are never moved and count as failures, overlapping trees are
// refused untouched, and a run that is killed or told to stop through a
// closed stdin leaves every file whole, ready for the same run to finish.
bool relocateDirectory(QString source, QString dest, const QString &ignore);
