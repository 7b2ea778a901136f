#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QList>

namespace NewsFeed
{
    // The feed elements the two news cards show, first card first: at most
    // two, none when the body is not a JSON array. An element that is not an
    // object reads as an empty one, so its card shows empty texts.
    QList<QJsonObject> cardElements(const QByteArray &body);
}
