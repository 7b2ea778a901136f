#include "platform/eventdispatchers.h"

#include <QByteArray>
#include <QtGlobal>

namespace
{
    const char NoGlib[] = "QT_NO_GLIB";
    bool setNoGlib = false;
}

void Platform::chooseEventDispatchers()
{
    // Qt's GLib dispatcher writes to a thread's wake-up file for every event
    // posted to it: the GUI thread posts several to itself for each file it
    // downloads, and a network thread receives several for each few
    // kilobytes it reads. Qt's own dispatcher, like the Windows one, wakes a
    // busy thread once for all that is posted meanwhile. Nothing on the GUI
    // thread needs GLib's loop: a GTK file dialog, being application-modal,
    // runs one itself while it is open, and the video's player lives on a
    // thread of its own.
    if (qEnvironmentVariableIsSet(NoGlib))
        return;
    qputenv(NoGlib, QByteArrayLiteral("1"));
    setNoGlib = true;
}

QProcessEnvironment Platform::environmentForOtherPrograms()
{
    // Qt reads the variable whenever a thread starts, so it stays set in this
    // process; a game built with Qt and GLib must not inherit it.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    if (setNoGlib)
        environment.remove(QString::fromLatin1(NoGlib));
    return environment;
}
