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
    QTest::addColumn<bool>("hasDisplay");
    QTest::addColumn<QByteArrayList>("wayland"); // WAYLAND_DISPLAY, XDG_SESSION_TYPE
    QTest::addColumn<QVariant>("answer"); // invalid: "cannot tell"

    QTest::newRow("X11 session without that window") << true << QByteArrayList {"", "x11"} << QVariant(false);
    QTest::newRow("WAYLAND_DISPLAY set") << true << QByteArrayList {"wayland-0", ""} << QVariant();
    QTest::newRow("Wayland session type") << true << QByteArrayList {"", "wayland"} << QVariant();
    QTest::newRow("no display") << false << QByteArrayList {"", ""} << QVariant();
}

void TestWindowLookup::session()
{
    QFETCH(bool, hasDisplay);
    QFETCH(QByteArrayList, wayland);
    QFETCH(QVariant, answer);

    if (hasDisplay && !m_display.isRunning())
        QSKIP("Xvfb could not be started");
    qputenv("DISPLAY", hasDisplay ? m_display.name().toLocal8Bit() : QByteArray());
    qputenv("WAYLAND_DISPLAY", wayland.at(0));
    qputenv("XDG_SESSION_TYPE", wayland.at(1));
    const std::optional<bool> visible = Platform::isWindowVisible(QStringLiteral("tst_platform_windowlookup"));
    QCOMPARE(visible ? QVariant(*visible) : QVariant(), answer);
}

QTEST_GUILESS_MAIN(TestWindowLookup)
#include "tst_platform_windowlookup.moc"
