#include "support/virtualdisplay.h"

#include <QCoreApplication>
#include <QFile>
#include <QThread>

VirtualDisplay::VirtualDisplay()
{
    // A display number of our own, so parallel test programs do not meet.
    for (int number = 90 + QCoreApplication::applicationPid() % 400; number < 990; ++number) {
        if (QFile::exists(QStringLiteral("/tmp/.X11-unix/X%1").arg(number))
            || QFile::exists(QStringLiteral("/tmp/.X%1-lock").arg(number)))
            continue;
        m_name = QStringLiteral(":%1").arg(number);
        m_server.start(QStringLiteral("Xvfb"),
                       {m_name, QStringLiteral("-screen"), QStringLiteral("0"), QStringLiteral("1600x1000x24"),
                        QStringLiteral("-noreset"), QStringLiteral("-nolisten"), QStringLiteral("tcp")});
        if (!m_server.waitForStarted())
            return;
        for (int i = 0; i < 100 && !QFile::exists(QStringLiteral("/tmp/.X11-unix/X%1").arg(number)); ++i)
            QThread::msleep(50);
        if (isRunning())
            qputenv("DISPLAY", m_name.toUtf8());
        return;
    }
}

VirtualDisplay::~VirtualDisplay()
{
    m_server.terminate();
    m_server.waitForFinished(3000);
}

bool VirtualDisplay::isRunning() const
{
    return m_server.state() == QProcess::Running;
}

QString VirtualDisplay::name() const
{
    return m_name;
}
