#pragma once

#include <QString>

#include <optional>

namespace Platform
{
    // Whether a visible top-level window titled exactly `title` is on the
    // screen. Empty when the desktop cannot be asked at all (no X server
    // under a Wayland-only session, say); callers then judge by other means.
    std::optional<bool> isWindowVisible(const QString &title);
}
