#include "platform/eventdispatchers.h"

void Platform::chooseEventDispatchers()
{
    // Qt's Windows dispatcher already wakes a busy thread only once for all
    // the events posted to it meanwhile.
}

QProcessEnvironment Platform::environmentForOtherPrograms()
{
    return QProcessEnvironment::systemEnvironment();
}
