#pragma once

#include <QJsonObject>
#include <QPixmap>
#include <QPointer>
#include <QRect>
#include <QString>
#include <QUrl>
#include <QWidget>

class QEnterEvent;
class QGraphicsDropShadowEffect;
class QLabel;
class QNetworkAccessManager;
class QNetworkReply;

// One news card: a picture with a date pill, a title and a subtitle. A click
// opens the element's page. Pictures are fetched by the card itself and kept
// in the cache folder for good, so a later start needs no request.
class AnnouncementWidget : public QWidget
{
    Q_OBJECT

public:
    explicit AnnouncementWidget(QWidget *parent = nullptr);

    // Fills the card from one element of the news feed and shows it.
    void setAnnouncement(const QJsonObject &element);
    void setImage(const QUrl &url);
    void layoutLabels();
    QPixmap picture() const;

    static QString imageCachePath(const QUrl &url);

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void enterEvent(QEnterEvent *event) override;
    void leaveEvent(QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void handleImageReply(QNetworkReply *reply, const QString &path);

    QPixmap image;
    QLabel *cardDateLabel = nullptr;
    QLabel *cardTitleLabel = nullptr;
    QLabel *cardSubtitleLabel = nullptr;
    QRect dateRect;
    QNetworkAccessManager *imageManager = nullptr;
    bool hovered = false;
    QGraphicsDropShadowEffect *hoverShadow = nullptr;
    // The picture asked for last; an older one must not land after it.
    QPointer<QNetworkReply> imageReply;
};
