#pragma once

#include <QByteArray>
#include <QDir>
#include <QStandardPaths>
#include <QTemporaryDir>

// Points the user settings store and the standard locations into a private
// temporary home, so that tests neither see nor touch a real user's settings.
// Create it before the first QSettings of the process: Qt remembers the
// settings directory once it has looked it up.
class IsolatedSettings
{
public:
    IsolatedSettings()
    {
        QStandardPaths::setTestModeEnabled(true);
        qputenv("HOME", m_home.path().toUtf8());
        qputenv("XDG_CONFIG_HOME", QByteArray(m_home.path().toUtf8() + "/config"));
        qputenv("XDG_DATA_HOME", QByteArray(m_home.path().toUtf8() + "/data"));
        qputenv("XDG_CACHE_HOME", QByteArray(m_home.path().toUtf8() + "/cache"));
        // The staging directory lives under the temporary location.
        qputenv("TMPDIR", QByteArray(m_home.path().toUtf8() + "/tmp"));
        QDir().mkpath(m_home.path() + QStringLiteral("/tmp"));
    }

    QString home() const { return m_home.path(); }

private:
    QTemporaryDir m_home;
};
