#include "ui/newsfeed.h"

#include <QJsonArray>
#include <QJsonDocument>

QList<QJsonObject> NewsFeed::cardElements(const QByteArray &body)
{
    const QJsonDocument document = QJsonDocument::fromJson(body);
    if (!document.isArray())
        return {};
    const QJsonArray feed = document.array();
    QList<QJsonObject> elements;
    for (qsizetype i = 0; i < feed.size() && i < 2; ++i)
        elements << feed.at(i).toObject();
    return elements;
}
