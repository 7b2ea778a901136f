#include "updater/updater.h"

#include <QDir>

#include "config/settings.h"
#include "platform/processlist.h"

bool Updater::isGameRunning() const
{
    const Settings *settings = Settings::instance();
    const std::optional<QString> image = Platform::firstProcessImagePath(settings->executableName());
    if (!image)
        return false;

    // Only the first readable process of that name is compared: a copy of
    // the game from another directory answers for all.
    const QString expected = QDir::toNativeSeparators(QDir::cleanPath(QDir::toNativeSeparators(settings->installPath())
                                                                      + QLatin1Char('/') + settings->executableName()));
    return Platform::isSameExecutable(*image, expected);
}
