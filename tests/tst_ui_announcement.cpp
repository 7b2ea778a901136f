#include <QBuffer>
#include <QDesktopServices>
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
    IsolatedSettings m_isolation;
    TestHttpServer m_server;
    QList<QUrl> m_opened;

public slots:
    void openUrl(const QUrl &url) { m_opened << url; }

private slots:
    void initTestCase()
    {
        QDesktopServices::setUrlHandler("https", this, "openUrl");
        QImage picture(400, 150, QImage::Format_RGB32);
        picture.fill(Qt::red);
        QBuffer png;
        QVERIFY(png.open(QIODevice::WriteOnly) && picture.save(&png, "PNG"));
        m_server.setContent("/news/red.png", png.data());
        m_server.setRedirect("/news/moved.png", m_server.baseUrl().toString() + "/news/red.png");
        m_server.setContent("/news/garbage.png", "this is no picture");
    }

    void feed()
    {
        // Two cards at most; an element that is not an object still takes its place.
        QStringList titles;
        for (const QJsonObject &element : NewsFeed::cardElements(R"([7, {"title": "B"}, {"title": "C"}])"))
            titles << element.value("title").toString();
        QCOMPARE(titles, QStringList({"", "B"}));
        QVERIFY(NewsFeed::cardElements(R"({"title": "A"})").isEmpty());
    }

    void card_data()
    {
        QTest::addColumn<QString>("image");
        QTest::addColumn<bool>("visible");
        QTest::addColumn<bool>("shown"); // the picture, seen where neither the pill nor the texts are
        QTest::newRow("picture") << "/news/red.png" << true << true;
        QTest::newRow("redirected picture") << "/news/moved.png" << true << true;
        QTest::newRow("missing picture") << "/news/missing.png" << true << false;
        QTest::newRow("undecodable picture") << "/news/garbage.png" << false << false;
    }

    void card()
    {
        QFETCH(QString, image);
        QFETCH(bool, visible);
        QFETCH(bool, shown);
        const QUrl imageUrl(m_server.baseUrl().toString() + image), page("https://www.hollowmere.example/news/1");
        const QJsonObject element {
            {"title", "Spring Festival"}, {"image", imageUrl.toString()}, {"url", page.toString()}};
        QWidget window;
        window.show();
        AnnouncementWidget card(&window);
        card.setAnnouncement(element);
        QTRY_VERIFY_WITH_TIMEOUT(card.findChildren<QNetworkReply *>().isEmpty(), 10000);
        // Only a picture that decodes is cached; a second card takes it from there, without a request.
        QCOMPARE(card.isVisible(), visible);
        QCOMPARE(QFile::exists(AnnouncementWidget::imageCachePath(imageUrl)), shown);
        AnnouncementWidget second(&window);
        second.setAnnouncement(element);
        QCOMPARE(!second.picture().isNull() && second.findChildren<QNetworkReply *>().isEmpty(), shown);
        QVERIFY(!shown || card.grab().toImage().pixelColor(300, 30) == QColor(Qt::red));
        if (visible) {
            QTest::mouseClick(&card, Qt::LeftButton);
            QCOMPARE(std::exchange(m_opened, {}), QList<QUrl> {page});
        }
    }
};

QTEST_MAIN(TestUiAnnouncement)
#include "tst_ui_announcement.moc"
