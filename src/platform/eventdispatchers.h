#pragma once

namespace Platform
{
    // Picks how Qt's threads wait for events. Must run before the first
    // QThread starts: Qt reads the choice as each thread begins.
    void chooseEventDispatchers();
}
