#include <QBuffer>
#include <QDesktopServices>
#include <QEnterEvent>
#include <QFile>
#include <QGraphicsEffect>
#include <QImage>
#include <QJsonObject>
#include <QLabel>
#include <QNetworkReply>
#include <QtTest>

#include "isolatedsettings.h"
#include "support/testhttpserver.h"
#include "ui/announcementwidget.h"
#include "ui/newsfeed.h"

// The news feed's elements and one news card against a loopback server.
class TestUiAnnouncement : public QObject
{
    Q_OBJECT

public slots:
    void openUrl(const QUrl &url) { m_opened << url; }

private slots:
    void initTestCase();
    void cleanupTestCase();
    void feed_data();
    void feed();
    void card_data();
    void card();

private:
    IsolatedSettings m_isolation;
    TestHttpServer m_server;
    QList<QUrl> m_opened;
};

namespace
{
    const QUrl Page(QStringLiteral("https://www.hollowmere.example/news/1"));

    QByteArray png(const QColor &colour)
    {
        // Wider than the card, so that the expanded copy is cut, not padded.
        QImage picture(400, 150, QImage::Format_RGB32);
        picture.fill(colour);
        QByteArray data;
        QBuffer buffer(&data);
        buffer.open(QIODevice::WriteOnly);
        picture.save(&buffer, "PNG");
        return data;
    }

}

void TestUiAnnouncement::initTestCase()
{
    QDesktopServices::setUrlHandler(QStringLiteral("https"), this, "openUrl");
    m_server.setContent(QStringLiteral("/news/red.png"), png(Qt::red));
    m_server.setContent(QStringLiteral("/news/blue.png"), png(Qt::blue));
    m_server.setRedirect(QStringLiteral("/news/moved.png"), m_server.baseUrl().toString() + "/news/blue.png");
    m_server.setContent(QStringLiteral("/news/garbage.png"), "this is no picture");
}

void TestUiAnnouncement::cleanupTestCase()
{
    QDesktopServices::unsetUrlHandler(QStringLiteral("https"));
}

void TestUiAnnouncement::feed_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QStringList>("titles");

    QTest::newRow("three elements") << QByteArray(R"([{"title":"A"},{"title":"B"},{"title":"C"}])")
                                    << QStringList {"A", "B"};
    QTest::newRow("one element") << QByteArray(R"([{"title":"A"}])") << QStringList {"A"};
    QTest::newRow("empty array") << QByteArray("[]") << QStringList();
    QTest::newRow("empty body") << QByteArray() << QStringList();
    QTest::newRow("object") << QByteArray(R"({"title":"A"})") << QStringList();
    QTest::newRow("not an object") << QByteArray(R"([7,{"title":"B"}])") << QStringList {"", "B"};
}

void TestUiAnnouncement::feed()
{
    QFETCH(QByteArray, body);
    QFETCH(QStringList, titles);

    QStringList shown;
    const QList<QJsonObject> elements = NewsFeed::cardElements(body);
    for (const QJsonObject &element : elements)
        shown << element.value(QLatin1String("title")).toString();
    QCOMPARE(shown, titles);
}

void TestUiAnnouncement::card_data()
{
    QTest::addColumn<QString>("image");
    QTest::addColumn<bool>("pictured");
    QTest::addColumn<bool>("visible");
    // Shown where neither the pill nor the texts are; without a picture,
    // the dark fill.
    QTest::addColumn<QColor>("colour");

    QTest::newRow("picture") << "/news/red.png" << true << true << QColor(Qt::red);
    QTest::newRow("redirected picture") << "/news/moved.png" << true << true << QColor(Qt::blue);
    QTest::newRow("missing picture") << "/news/missing.png" << false << true << QColor(Qt::black);
    QTest::newRow("undecodable picture") << "/news/garbage.png" << false << false << QColor(Qt::black);
    QTest::newRow("no picture named") << QString() << false << true << QColor(Qt::black);
}

void TestUiAnnouncement::card()
{
    QFETCH(QString, image);
    QFETCH(bool, pictured);
    QFETCH(bool, visible);
    QFETCH(QColor, colour);

    const QUrl imageUrl = image.isEmpty() ? QUrl() : QUrl(m_server.baseUrl().toString() + image);
    const QJsonObject element {{"date", "12 May 2025"},
                               {"title", "Spring Festival"},
                               {"subtitle", "Lanterns over the harbour"},
                               {"image", imageUrl.toString()},
                               {"url", Page.toString()}};
    m_server.resetStatistics();
    m_opened.clear();

    // Cards are children of the window, as the launcher's are.
    QWidget window;
    window.show();
    AnnouncementWidget card(&window);
    card.setAnnouncement(element);
    QVERIFY(QTest::qWaitFor([&card] { return card.findChildren<QNetworkReply *>().isEmpty(); }, 10000));

    QStringList texts;
    for (const char *name : {"announcementDateLabel", "announcementTitleLabel", "announcementSubtitleLabel"})
        texts << card.findChild<QLabel *>(QLatin1String(name))->text();
    QCOMPARE(texts, (QStringList {"12 May 2025", "Spring Festival", "Lanterns over the harbour"}));
    // The date's pill hugs its text.
    const auto *date = card.findChild<QLabel *>(QStringLiteral("announcementDateLabel"));
    QCOMPARE(date->width(), date->fontMetrics().horizontalAdvance(date->text()) + 26);
    QCOMPARE(!card.picture().isNull(), pictured);
    QCOMPARE(card.isVisible(), visible);
    const QColor shown = card.grab().toImage().pixelColor(300, 30);
    if (pictured)
        QCOMPARE(shown, colour);
    else
        QVERIFY2(qMax(qMax(shown.red(), shown.green()), shown.blue()) < 64, qPrintable(shown.name()));

    QCOMPARE(QFile::exists(AnnouncementWidget::imageCachePath(imageUrl)), pictured);
    if (pictured) {
        const int requests = m_server.requests().size();
        // A second card takes the picture from the cache, at once.
        AnnouncementWidget second(&window);
        second.setAnnouncement(element);
        QVERIFY(!second.picture().isNull() && second.findChildren<QNetworkReply *>().isEmpty());
        QCOMPARE(m_server.requests().size(), requests);
    }

    if (visible) {
        QEnterEvent enter(QPointF(5, 5), QPointF(5, 5), QPointF(5, 5));
        QCoreApplication::sendEvent(&card, &enter);
        QVERIFY(card.graphicsEffect()->isEnabled());
        QEvent leave(QEvent::Leave);
        QCoreApplication::sendEvent(&card, &leave);
        QVERIFY(!card.graphicsEffect()->isEnabled());

        QTest::mouseClick(&card, Qt::LeftButton);
        QCOMPARE(m_opened, QList<QUrl> {Page});
    }
}

QTEST_MAIN(TestUiAnnouncement)
#include "tst_ui_announcement.moc"
