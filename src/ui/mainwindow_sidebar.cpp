#include "ui/mainwindow.h"

#include <QFont>
#include <QFontMetrics>
#include <QGraphicsDropShadowEffect>
#include <QHBoxLayout>
#include <QJsonArray>
#include <QJsonObject>
#include <QLabel>
#include <QPainter>
#include <QPixmap>
#include <QSvgRenderer>
#include <QVBoxLayout>

#include "config/settings.h"

namespace
{
    const int RowHeight = 30;
    const int IconSize = 30;
    const int RowMargin = 30;
    const int IconGap = 8;
    const int RowSpacing = 8;
    // Left margin, icon, gap and right margin around the longest name.
    const int PanelExtraWidth = RowMargin + IconSize + IconGap + RowMargin;

    QFont categoryFont()
    {
        QFont font(QStringLiteral("Poppins"), 14);
        font.setStyleStrategy(QFont::PreferAntialias);
        font.setHintingPreference(QFont::PreferFullHinting);
        font.setWeight(QFont::DemiBold);
        font.setKerning(true);
        return font;
    }

    QPixmap renderIcon(const QString &path)
    {
        QPixmap pixmap(IconSize, IconSize);
        pixmap.fill(Qt::transparent);
        QSvgRenderer renderer(path);
        QPainter painter(&pixmap);
        renderer.render(&painter);
        return pixmap;
    }
}

void MainWindow::buildCategories()
{
    auto *layout = findChild<QVBoxLayout *>(QStringLiteral("categoriesLayout"));
    if (!layout)
        return;
    layout->setSpacing(RowSpacing);

    // Deferred, so that an event already queued for an old row (a hover, a
    // release) finds it still alive.
    while (QLayoutItem *item = layout->takeAt(0)) {
        if (QWidget *widget = item->widget())
            widget->deleteLater();
        delete item;
    }

    const QFont font = categoryFont();
    const QFontMetrics metrics(font);
    const QJsonArray categories = Settings::instance()->categories();

    int widest = 0;
    for (const QJsonValue &value : categories) {
        const QString name = value.toObject().value(QLatin1String("name")).toString();
        if (!name.isEmpty())
            widest = qMax(widest, metrics.horizontalAdvance(tr(name.toUtf8().constData())));
    }

    if (auto *panel = findChild<QWidget *>(QStringLiteral("categoriesPanel"))) {
        panel->setFixedWidth(widest + PanelExtraWidth);
        const QMargins margins = panel->contentsMargins();
        panel->setContentsMargins(0, margins.top(), 0, margins.bottom());
    }

    for (const QJsonValue &value : categories) {
        const QJsonObject category = value.toObject();
        const QString name = category.value(QLatin1String("name")).toString();

        if (name.isEmpty()) {
            auto *separator = new QWidget(this);
            separator->setFixedHeight(1);
            separator->setFixedWidth(80);
            separator->setStyleSheet(QStringLiteral("margin-left: 30px; background-color: rgba(255, 255, 255, 75%);"));
            layout->addWidget(separator);
            continue;
        }

        // A plain widget rather than a button, so that the style sheet's
        // .CategoryButton rules alone decide its look.
        auto *row = new QWidget(this);
        row->setProperty("class", QStringLiteral("CategoryButton"));
        row->setFixedHeight(RowHeight);
        auto *rowLayout = new QHBoxLayout(row);
        rowLayout->setContentsMargins(RowMargin, 0, RowMargin, 0);
        rowLayout->setSpacing(IconGap);

        auto *icon = new QLabel;
        icon->setPixmap(renderIcon(category.value(QLatin1String("icon")).toString()));

        auto *text = new QLabel;
        text->setText(tr(name.toUtf8().constData()));
        text->setFont(categoryFont());
        auto *shadow = new QGraphicsDropShadowEffect(text);
        shadow->setBlurRadius(5.0);
        shadow->setColor(QColor(0, 0, 0, 255));
        shadow->setOffset(0.0, 1.0);
        text->setGraphicsEffect(shadow);
        // Without a colour the declaration is empty and the sheet's white
        // stays.
        text->setStyleSheet(QStringLiteral("color: %1;").arg(category.value(QLatin1String("color")).toString()));

        rowLayout->addWidget(icon);
        rowLayout->addWidget(text);
        rowLayout->addStretch();

        layout->addWidget(row);
        row->setCursor(Qt::PointingHandCursor);
        row->installEventFilter(this);

        const QString url = category.value(QLatin1String("url")).toString();
        if (!url.isEmpty())
            row->setProperty("url", url);
    }

    layout->addStretch();
}
