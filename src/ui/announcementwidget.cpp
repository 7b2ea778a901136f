#include "ui/announcementwidget.h"

#include <QCryptographicHash>
#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QFontMetrics>
#include <QGraphicsDropShadowEffect>
#include <QLabel>
#include <QMouseEvent>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPainter>
#include <QPainterPath>
#include <QSaveFile>
#include <QSslConfiguration>
#include <QStandardPaths>
#include <QtMath>

namespace
{
    const QSize CardSize(356, 200);
    const QColor HoverColor(QStringLiteral("#FEFEC6"));
    const QColor BorderColor(QStringLiteral("#A6AAB2"));
    const QColor PillTextColor(QStringLiteral("#FEFEC6"));

    QGraphicsDropShadowEffect *textShadow(QObject *parent)
    {
        auto *shadow = new QGraphicsDropShadowEffect(parent);
        shadow->setColor(QColor(0, 0, 0, 255));
        shadow->setBlurRadius(1.0);
        shadow->setOffset(1.0, 1.0);
        return shadow;
    }

    int wrappedHeight(const QLabel *label, int width)
    {
        return QFontMetrics(label->font())
            .boundingRect(QRect(0, 0, width, 2147483647), Qt::AlignHCenter | Qt::TextWordWrap, label->text())
            .height();
    }
}

AnnouncementWidget::AnnouncementWidget(QWidget *parent)
    : QWidget(parent)
{
    setFixedSize(CardSize);
    setCursor(Qt::PointingHandCursor);
    setAttribute(Qt::WA_TranslucentBackground);

    hoverShadow = new QGraphicsDropShadowEffect(this);
    hoverShadow->setColor(QColor(254, 254, 198, 191));
    hoverShadow->setOffset(2.0, 2.0);
    hoverShadow->setBlurRadius(10.0);
    hoverShadow->setEnabled(false);
    setGraphicsEffect(hoverShadow);

    imageManager = new QNetworkAccessManager(this);

    cardDateLabel = new QLabel(this);
    cardDateLabel->setObjectName(QStringLiteral("announcementDateLabel"));
    cardTitleLabel = new QLabel(this);
    cardTitleLabel->setObjectName(QStringLiteral("announcementTitleLabel"));
    cardSubtitleLabel = new QLabel(this);
    cardSubtitleLabel->setObjectName(QStringLiteral("announcementSubtitleLabel"));

    cardDateLabel->setContentsMargins(0, 0, 0, 0);
    cardDateLabel->setAttribute(Qt::WA_TransparentForMouseEvents);
    for (QLabel *label : {cardTitleLabel, cardSubtitleLabel}) {
        label->setWordWrap(true);
        label->setAlignment(Qt::AlignHCenter | Qt::AlignTop);
        label->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Minimum);
        label->setGraphicsEffect(textShadow(this));
    }

    layoutLabels();
}

void AnnouncementWidget::setAnnouncement(const QJsonObject &element)
{
    const auto text = [&element](const char *key) { return element.value(QLatin1String(key)).toString(); };
    cardDateLabel->setText(text("date"));
    cardTitleLabel->setText(text("title"));
    cardSubtitleLabel->setText(text("subtitle"));
    setImage(QUrl(text("image")));
    setProperty("url", text("url"));
    show();
    layoutLabels();
    raise();
}

QPixmap AnnouncementWidget::picture() const
{
    return image;
}

QString AnnouncementWidget::imageCachePath(const QUrl &url)
{
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::CacheLocation);
    QDir().mkpath(folder);
    const QByteArray digest = QCryptographicHash::hash(url.toString().toUtf8(), QCryptographicHash::Md5).toHex();
    return folder + QDir::separator() + QStringLiteral("announcement_") + QString::fromLatin1(digest)
        + QStringLiteral(".png");
}

void AnnouncementWidget::setImage(const QUrl &url)
{
    if (imageReply) {
        QObject::disconnect(imageReply, nullptr, this, nullptr);
        imageReply->abort();
        imageReply->deleteLater();
    }

    const QString path = imageCachePath(url);
    if (QFile::exists(path)) {
        // A cached file that no longer decodes is fetched again rather than
        // leaving the card blank for good: cache names never change.
        const QPixmap cached(path);
        if (!cached.isNull()) {
            image = cached;
            update();
            return;
        }
    }

    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
    tls.setProtocol(QSsl::TlsV1_2OrLater);
    request.setSslConfiguration(tls);
    QNetworkReply *reply = imageManager->get(request);
    imageReply = reply;
    connect(reply, &QNetworkReply::finished, this, [this, reply, path] { handleImageReply(reply, path); });
    // A picture is decoration; a certificate problem must not cost the card.
    connect(reply, &QNetworkReply::sslErrors, this, [reply] { reply->ignoreSslErrors(); });
}

void AnnouncementWidget::handleImageReply(QNetworkReply *reply, const QString &path)
{
    reply->deleteLater();
    if (reply->error() != QNetworkReply::NoError)
        return;

    QPixmap pixmap;
    if (!pixmap.loadFromData(reply->readAll())) {
        setVisible(false);
        return;
    }
    // The cache is never refreshed, so a half-written file must never get
    // the picture's name.
    QSaveFile cacheFile(path);
    if (cacheFile.open(QIODevice::WriteOnly) && pixmap.save(&cacheFile, "PNG"))
        cacheFile.commit();
    image = pixmap.scaled(size(), Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation);
    update();
}

void AnnouncementWidget::layoutLabels()
{
    const int cardWidth = width();
    const int cardHeight = height();

    cardDateLabel->adjustSize();
    const int textWidth = QFontMetrics(cardDateLabel->font()).horizontalAdvance(cardDateLabel->text());
    cardDateLabel->setFixedSize(textWidth + 26, 20);
    cardDateLabel->setAlignment(Qt::AlignCenter);
    cardDateLabel->move(10, 7);
    dateRect = cardDateLabel->geometry().translated(0, 1);

    const int textBlockWidth = cardWidth - 40;
    const int titleHeight = qMax(wrappedHeight(cardTitleLabel, textBlockWidth) + 5, 25);
    const int subtitleHeight = qMax(wrappedHeight(cardSubtitleLabel, textBlockWidth) + 5, 20);
    // Centred on a line below the card's middle, which leaves the pill room.
    const int top = cardHeight / 2 + 20 - (titleHeight + 10 + subtitleHeight) / 2;
    const int x = (cardWidth - textBlockWidth) / 2;
    cardTitleLabel->setGeometry(x, top, textBlockWidth, titleHeight);
    cardSubtitleLabel->setGeometry(x, top + titleHeight + 10, textBlockWidth, subtitleHeight);
}

void AnnouncementWidget::mousePressEvent(QMouseEvent *event)
{
    const QString url = property("url").toString();
    if (!url.isEmpty())
        QDesktopServices::openUrl(QUrl(url));
    QWidget::mousePressEvent(event);
}

void AnnouncementWidget::enterEvent(QEnterEvent *event)
{
    hovered = true;
    hoverShadow->setEnabled(true);
    QWidget::enterEvent(event);
}

void AnnouncementWidget::leaveEvent(QEvent *event)
{
    hovered = false;
    hoverShadow->setEnabled(false);
    QWidget::leaveEvent(event);
}

void AnnouncementWidget::paintEvent(QPaintEvent *event)
{
    // Painted at twice the size and brought down in one step: the rounded
    // corners and the pill stay smooth also on a screen of scale 1.
    QPixmap buffer(qRound(width() * 2.0), qRound(height() * 2.0));
    buffer.setDevicePixelRatio(2.0);
    buffer.fill(Qt::transparent);
    {
        QPainter painter(&buffer);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);

        QPainterPath card;
        card.addRoundedRect(QRectF(rect()), 8.0, 8.0, Qt::AbsoluteSize);
        painter.setClipPath(card);
        if (image.isNull()) {
            painter.setBrush(QBrush(QColor(0, 0, 0, 120), Qt::SolidPattern));
            painter.drawPath(card);
        } else {
            painter.drawPixmap(rect(), image, image.rect());
        }

        painter.setPen(QPen(QBrush(hovered ? HoverColor : BorderColor, Qt::SolidPattern), 2.0, Qt::SolidLine,
                            Qt::SquareCap, Qt::BevelJoin));
        painter.drawPath(card);

        QPainterPath pill;
        pill.addRoundedRect(QRectF(dateRect), 10.0, 10.0);
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor(0, 0, 0, 191));
        painter.drawPath(pill);
        QPen outline(PillTextColor, 1.0, Qt::SolidLine, Qt::SquareCap, Qt::BevelJoin);
        outline.setCosmetic(true);
        painter.setPen(outline);
        painter.setBrush(Qt::NoBrush);
        painter.drawPath(pill);
    }

    QPainter painter(this);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawPixmap(0, 0, buffer);
    QWidget::paintEvent(event);
}

void AnnouncementWidget::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    layoutLabels();
}
