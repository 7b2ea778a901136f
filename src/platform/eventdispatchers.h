#pragma once

#include <QProcessEnvironment>

namespace Platform
{
    // Picks how Qt's threads wait for events. Must run before the
    // application object is made and before the first QThread starts: Qt
    // reads the choice as each of them begins.
    void chooseEventDispatchers();

    // This process's environment without what chooseEventDispatchers() put
    // into it, for programs that are not the launcher, such as the game.
    QProcessEnvironment environmentForOtherPrograms();
}
