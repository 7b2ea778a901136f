#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QMutex>
#include <QObject>
#include <QString>

class QSettings;

// The product configuration compiled into this build, and the little a user's
// choices leave behind between runs. One instance, created by the main window.
class Settings : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Settings)

public:
    explicit Settings(QObject *parent);
    // Loads another configuration file in place of the compiled-in one.
    Settings(const QString &configurationFile, QObject *parent);
    ~Settings() override;

    static Settings *instance();
    static QString configurationResource();

    QString expandPath(const QString &path) const;
    QString defaultInstallPath() const;

    QString installPath() const;
    QString language() const;
    bool animationsEnabled() const;
    bool hasSelectedInstallPath() const;
    bool ignoreLegacyInstallationMigration() const;
    QString lastUpdateCheck() const;

    QJsonObject config() const;
    QString applicationName() const;
    QString companyName() const;
    QString updateUrl() const;
    QString executableName() const;
    QString logoImage() const;
    QJsonArray categories() const;
    QString companyUrl() const;
    QString legacyDir() const;
    QString updaterExecutable() const;
    QString launcherExecutable() const;
    QString launcherUpdateUrl() const;
    QString version() const;
    QString manifestFile() const;
    QString newsUrl() const;
    // The optional "language" key of the configuration, not the user's choice.
    QString configuredLanguage() const;

public slots:
    void setInstallPath(const QString &path);
    void setAutoUpdate(bool enabled);
    void setLastUpdateCheck(const QString &dateTime);
    void setIgnoreLegacyInstallationMigration(bool ignore);
    void setAnimationsEnabled(bool enabled);
    void setHasSelectedInstallPath(bool hasSelected);
    void setLanguage(const QString &language);

signals:
    void installPathChanged(const QString &newPath);
    void autoUpdateChanged(bool enabled);
    void lastUpdateCheckChanged(const QString &dateTime);
    void gameVersionChanged(const QString &version);
    void languageChanged(const QString &language);

private:
    bool loadConfiguration(const QString &fileName);
    QVariant storedValue(const QString &key, const QVariant &defaultValue) const;
    void storeValue(const QString &key, const QVariant &value);

    QSettings *m_settings = nullptr;
    // QSettings is reentrant, not thread-safe, and installPath() is called
    // from the verification's pool threads while the GUI thread writes.
    mutable QMutex m_storeMutex;
    QJsonObject m_config;
    QString m_lastUpdateCheck;
    QString m_applicationName;
    QString m_companyName;
    QString m_updateUrl;
    QString m_executableName;
    QString m_logoImage;
    QJsonArray m_categories;
    QString m_companyUrl;
    QString m_legacyDir;
    QString m_updaterExecutable;
    QString m_launcherExecutable;
    QString m_launcherUpdateUrl;
    QString m_version;
    QString m_manifestFile;
    QString m_newsUrl;
    QString m_language;
};
