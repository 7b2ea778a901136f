#include "config/settings.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QLocale>
#include <QMap>
#include <QMutexLocker>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QSettings>

#include "platform/defaultpaths.h"

namespace
{
    Settings *s_instance = nullptr;

    // A variable whose value names itself never settles; real templates need
    // two or three passes at most.
    const int MaxEnvironmentPasses = 16;

    const QString InstallPathKey = QStringLiteral("installPath");
    const QString LanguageKey = QStringLiteral("language");
    const QString AnimationsEnabledKey = QStringLiteral("animationsEnabled");
    const QString HasSelectedInstallPathKey = QStringLiteral("hasSelectedInstallPath");
    const QString IgnoreLegacyMigrationKey = QStringLiteral("ignoreLegacyInstallationMigration");
    const QString AutoUpdateKey = QStringLiteral("autoUpdate");
}

Settings::Settings(QObject *parent)
    : Settings(configurationResource(), parent)
{ }

Settings::Settings(const QString &configurationFile, QObject *parent)
    : QObject(parent)
{
    loadConfiguration(configurationFile);

    // QSettings takes its scope from these, so they come first.
    QCoreApplication::setOrganizationName(m_companyName);
    QCoreApplication::setApplicationName(m_applicationName + QStringLiteral(" Launcher"));
    QCoreApplication::setApplicationVersion(m_version);

    m_settings = new QSettings;
    s_instance = this;
}

Settings::~Settings()
{
    if (s_instance == this)
        s_instance = nullptr;
    m_settings->sync();
    delete m_settings;
}

Settings *Settings::instance()
{
    return s_instance;
}

QString Settings::configurationResource()
{
    return QStringLiteral(LAUNCHER_CONFIGURATION_RESOURCE);
}

bool Settings::loadConfiguration(const QString &fileName)
{
    QFile file(fileName);
    if (!file.exists())
        return false;
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return false;

    const QJsonDocument document = QJsonDocument::fromJson(file.readAll());
    if (document.isNull())
        return false;

    m_config = document.object();
    const auto text = [this](const char *key) { return m_config.value(QLatin1String(key)).toString(QString()); };
    m_version = text("version");
    m_applicationName = text("applicationName");
    m_companyName = text("companyName");
    m_companyUrl = text("companyUrl");
    m_manifestFile = text("manifestFile");
    m_updateUrl = text("updateUrl");
    m_executableName = text("executableName");
    m_logoImage = text("logoImage");
    m_legacyDir = text("legacyDir");
    m_updaterExecutable = text("updaterExecutable");
    m_launcherExecutable = text("launcherExecutable");
    m_launcherUpdateUrl = text("launcherUpdateUrl");
    m_newsUrl = text("newsUrl");
    m_categories = m_config.value(QLatin1String("categories")).toArray();
    m_language = text("language");
    return true;
}

QString Settings::expandPath(const QString &path) const
{
    QString result = path;
    const QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();

    // A value may itself name a variable, so repeat until a pass changes nothing.
    static const QRegularExpression variable(QStringLiteral("%([^%]+)%"));
    for (int pass = 0; pass < MaxEnvironmentPasses; ++pass) {
        bool replaced = false;
        qsizetype shift = 0;
        const QString before = result;
        auto matches = variable.globalMatch(before);
        while (matches.hasNext()) {
            const QRegularExpressionMatch match = matches.next();
            const QString value = environment.value(match.captured(1), QString());
            if (value.isEmpty())
                continue;
            result.replace(match.capturedStart() + shift, match.capturedLength(), value);
            shift += value.size() - match.capturedLength();
            replaced = true;
        }
        if (!replaced)
            break;
    }

    // Placeholders run after the environment, so a variable may hold one.
    const QMap<QString, QString> placeholders {
        {QStringLiteral("{appData}"), Platform::appDataLocation()},
        {QStringLiteral("{applicationName}"), m_applicationName},
        {QStringLiteral("{companyName}"), m_companyName},
    };
    for (auto it = placeholders.cbegin(); it != placeholders.cend(); ++it)
        result.replace(it.key(), it.value(), Qt::CaseSensitive);

    result = QDir::toNativeSeparators(QDir::cleanPath(result));

    const QString parent = QFileInfo(result).path();
    if (!QDir(parent).exists())
        QDir(parent).mkpath(QStringLiteral("."));
    return result;
}

QString Settings::defaultInstallPath() const
{
    const QJsonObject templates = m_config.value(QLatin1String("defaultPaths")).toObject();
    return expandPath(templates.value(Platform::defaultPathsKey()).toString(QString()));
}

QVariant Settings::storedValue(const QString &key, const QVariant &defaultValue) const
{
    const QMutexLocker locker(&m_storeMutex);
    return m_settings->value(key, defaultValue);
}

void Settings::storeValue(const QString &key, const QVariant &value)
{
    const QMutexLocker locker(&m_storeMutex);
    m_settings->setValue(key, value);
}

QString Settings::installPath() const
{
    const QString path = storedValue(InstallPathKey, defaultInstallPath()).toString();
    return QDir::toNativeSeparators(QDir::cleanPath(path));
}

QString Settings::language() const
{
    const QString systemLanguage
        = QLocale::system().name().split(QLatin1Char('_'), Qt::KeepEmptyParts, Qt::CaseSensitive).first();
    return storedValue(LanguageKey, systemLanguage).toString();
}

bool Settings::animationsEnabled() const
{
    return storedValue(AnimationsEnabledKey, false).toBool();
}

bool Settings::hasSelectedInstallPath() const
{
    return storedValue(HasSelectedInstallPathKey, false).toBool();
}

bool Settings::ignoreLegacyInstallationMigration() const
{
    return storedValue(IgnoreLegacyMigrationKey, false).toBool();
}

QString Settings::lastUpdateCheck() const
{
    return m_lastUpdateCheck;
}

void Settings::setInstallPath(const QString &path)
{
    // Compared as raw text: normalisation happens on reading.
    if (storedValue(InstallPathKey, QString()).toString() == path)
        return;
    storeValue(InstallPathKey, path);
    emit installPathChanged(path);
}

void Settings::setAutoUpdate(bool enabled)
{
    // Nothing reads the key; a missing one compares as the configuration's
    // default of updating automatically.
    if (storedValue(AutoUpdateKey, true).toBool() == enabled)
        return;
    storeValue(AutoUpdateKey, enabled);
    emit autoUpdateChanged(enabled);
}

void Settings::setLastUpdateCheck(const QString &dateTime)
{
    if (m_lastUpdateCheck == dateTime)
        return;
    m_lastUpdateCheck = dateTime;
    emit lastUpdateCheckChanged(dateTime);
}

void Settings::setIgnoreLegacyInstallationMigration(bool ignore)
{
    storeValue(IgnoreLegacyMigrationKey, ignore);
}

void Settings::setAnimationsEnabled(bool enabled)
{
    storeValue(AnimationsEnabledKey, enabled);
}

void Settings::setHasSelectedInstallPath(bool hasSelected)
{
    storeValue(HasSelectedInstallPathKey, hasSelected);
    const QMutexLocker locker(&m_storeMutex);
    m_settings->sync();
}

void Settings::setLanguage(const QString &language)
{
    if (storedValue(LanguageKey, QStringLiteral("en")).toString() == language)
        return;
    storeValue(LanguageKey, language);
    emit languageChanged(language);
}

QJsonObject Settings::config() const
{
    return m_config;
}
QString Settings::applicationName() const
{
    return m_applicationName;
}
QString Settings::companyName() const
{
    return m_companyName;
}
QString Settings::updateUrl() const
{
    return m_updateUrl;
}
QString Settings::executableName() const
{
    return m_executableName;
}
QString Settings::logoImage() const
{
    return m_logoImage;
}
QJsonArray Settings::categories() const
{
    return m_categories;
}
QString Settings::companyUrl() const
{
    return m_companyUrl;
}
QString Settings::legacyDir() const
{
    return m_legacyDir;
}
QString Settings::updaterExecutable() const
{
    return m_updaterExecutable;
}
QString Settings::launcherExecutable() const
{
    return m_launcherExecutable;
}
QString Settings::launcherUpdateUrl() const
{
    return m_launcherUpdateUrl;
}
QString Settings::version() const
{
    return m_version;
}
QString Settings::manifestFile() const
{
    return m_manifestFile;
}
QString Settings::newsUrl() const
{
    return m_newsUrl;
}
QString Settings::configuredLanguage() const
{
    return m_language;
}
