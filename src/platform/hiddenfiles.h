#pragma once

#include <QDir>

namespace Platform
{
    // Filters that make a directory walk see the entries a user does not
    // think of as hidden. Where hiding is a file attribute those entries are
    // really hidden and stay out of the walk; where it is only a leading dot
    // in the name (".initcomplete"), they are ordinary files and must be seen.
    QDir::Filters visibleDotFileFilter();
}
