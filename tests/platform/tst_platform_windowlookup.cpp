#include <QtTest>

#include "platform/windowlookup.h"
#include "support/virtualdisplay.h"

// Asks a private X server for a window under the environments of different
// desktop sessions.
class TestWindowLookup : public QObject
{
    Q_OBJECT

private slots:
    void session_data();
    void session();

private:
    VirtualDisplay m_display;
};

void TestWindowLookup::session_data()
{
    // An invalid answer stands for "cannot tell".
    QTest::addColumn<bool>("hasDisplay");
    QTest::addColumn<QByteArray>("waylandDisplay");
    QTest::addColumn<QByteArray>("sessionType");
    QTest::addColumn<QVariant>("answer");

    QTest::newRow("X11 session without that window") << true << QByteArray() << QByteArray("x11") << QVariant(false);
    QTest::newRow("WAYLAND_DISPLAY set") << true << QByteArray("wayland-0") << QByteArray() << QVariant();
    QTest::newRow("Wayland session type") << true << QByteArray() << QByteArray("wayland") << QVariant();
    QTest::newRow("no display") << false << QByteArray() << QByteArray() << QVariant();
}

void TestWindowLookup::session()
{
    QFETCH(bool, hasDisplay);
    QFETCH(QByteArray, waylandDisplay);
    QFETCH(QByteArray, sessionType);
    QFETCH(QVariant, answer);

    if (hasDisplay && !m_display.isRunning())
        QSKIP("Xvfb could not be started");
    qputenv("DISPLAY", hasDisplay ? m_display.name().toLocal8Bit() : QByteArray());
    qputenv("WAYLAND_DISPLAY", waylandDisplay);
    qputenv("XDG_SESSION_TYPE", sessionType);

    const std::optional<bool> visible = Platform::isWindowVisible(QStringLiteral("tst_platform_windowlookup"));
    QCOMPARE(visible ? QVariant(*visible) : QVariant(), answer);
}

QTEST_GUILESS_MAIN(TestWindowLookup)
#include "tst_platform_windowlookup.moc"
