#include <QBuffer>
#include <QDesktopServices>
#include <QFile>
#include <QImage>
#include <QJsonObject>
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
    QByteArray png(const QColor &colour)
    {
        // Wider than the card, so that the expanded copy is cut, not padded.
        QImage picture(400, 150, QImage::Format_RGB32);
        picture.fill(colour);
        QBuffer buffer;
        buffer.open(QIODevice::WriteOnly);
        picture.save(&buffer, "PNG");
        return buffer.data();
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

void TestUiAnnouncement::feed()
{
    const auto titles = [](const QByteArray &body) {
        QStringList shown;
        for (const QJsonObject &element : NewsFeed::cardElements(body))
            shown << element.value(QLatin1String("title")).toString();
        return shown;
    };
    QCOMPARE(titles(R"([{"title":"A"},{"title":"B"},{"title":"C"}])"), QStringList({"A", "B"}));
    QCOMPARE(titles(QByteArray()), QStringList());
    QCOMPARE(titles(R"({"title":"A"})"), QStringList());
    // An element that is not an object still makes a card, with no texts.
    QCOMPARE(titles(R"([7,{"title":"B"}])"), QStringList({"", "B"}));
}

void TestUiAnnouncement::card_data()
{
    QTest::addColumn<QString>("image");
    QTest::addColumn<bool>("visible");
    // Shown where neither the pill nor the texts are; invalid: no picture.
    QTest::addColumn<QColor>("colour");

    QTest::newRow("picture") << "/news/red.png" << true << QColor(Qt::red);
    QTest::newRow("redirected picture") << "/news/moved.png" << true << QColor(Qt::blue);
    QTest::newRow("missing picture") << "/news/missing.png" << true << QColor();
    QTest::newRow("undecodable picture") << "/news/garbage.png" << false << QColor();
    QTest::newRow("no picture named") << QString() << true << QColor();
}

void TestUiAnnouncement::card()
{
    QFETCH(QString, image);
    QFETCH(bool, visible);
    QFETCH(QColor, colour);

    const QUrl imageUrl = image.isEmpty() ? QUrl() : QUrl(m_server.baseUrl().toString() + image);
    const QUrl page(QStringLiteral("https://www.hollowmere.example/news/1"));
    const QJsonObject element {{"title", "Spring Festival"}, {"image", imageUrl.toString()}, {"url", page.toString()}};
    m_opened.clear();

    // Cards are children of the window, as the launcher's are.
    QWidget window;
    window.show();
    AnnouncementWidget card(&window);
    card.setAnnouncement(element);
    QTRY_VERIFY_WITH_TIMEOUT(card.findChildren<QNetworkReply *>().isEmpty(), 10000);

    QCOMPARE(card.isVisible(), visible);
    QCOMPARE(!card.picture().isNull(), colour.isValid());
    QCOMPARE(QFile::exists(AnnouncementWidget::imageCachePath(imageUrl)), colour.isValid());
    if (colour.isValid()) {
        QCOMPARE(card.grab().toImage().pixelColor(300, 30), colour);
        // A second card takes the picture from the cache, at once.
        const int requests = m_server.requests().size();
        AnnouncementWidget second(&window);
        second.setAnnouncement(element);
        QVERIFY(!second.picture().isNull() && second.findChildren<QNetworkReply *>().isEmpty());
        QCOMPARE(m_server.requests().size(), requests);
    }
    if (visible) {
        QTest::mouseClick(&card, Qt::LeftButton);
        QCOMPARE(m_opened, QList<QUrl> {page});
    }
}

QTEST_MAIN(TestUiAnnouncement)
#include "tst_ui_announcement.moc"
