#pragma once

#include <QProcess>
#include <QString>

// A private X server for tests that need real top-level windows. Children
// started afterwards inherit DISPLAY and show their windows there.
class VirtualDisplay
{
public:
    VirtualDisplay();
    ~VirtualDisplay();

    bool isRunning() const;
    QString name() const;

private:
    QProcess m_server;
    QString m_name;
};
