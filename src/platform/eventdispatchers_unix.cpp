#include "platform/eventdispatchers.h"

#include <QByteArray>
#include <QtGlobal>

void Platform::chooseEventDispatchers()
{
    // Qt's GLib dispatcher writes to a thread's wake-up file for every event
    // posted to it, and a transfer's network thread posts several for each
    // few kilobytes it reads. Qt's own dispatcher, like the Windows one,
    // wakes a busy thread once for all that is posted meanwhile. The GUI
    // thread keeps GLib: the video's GStreamer bus is watched through it.
    qputenv("QT_NO_THREADED_GLIB", QByteArrayLiteral("1"));
}
