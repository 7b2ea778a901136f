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
    QTest::addColumn<QByteArrayList>("environment"); // DISPLAY ("" or "X"), WAYLAND_DISPLAY, XDG_SESSION_TYPE
    QTest::addColumn<QVariant>("answer"); // invalid: "cannot tell"

    QTest::newRow("X11 session without that window") << QByteArrayList {"X", "", "x11"} << QVariant(false);
    QTest::newRow("WAYLAND_DISPLAY set") << QByteArrayList {"X", "wayland-0", ""} << QVariant();
    QTest::newRow("Wayland session type") << QByteArrayList {"X", "", "wayland"} << QVariant();
    QTest::newRow("no display") << QByteArrayList {"", "", ""} << QVariant();
}

void TestWindowLookup::session()
{
    QFETCH(QByteArrayList, environment);
    QFETCH(QVariant, answer);

    if (!environment.at(0).isEmpty() && !m_display.isRunning())
        QSKIP("Xvfb could not be started");
    qputenv("DISPLAY", environment.at(0).isEmpty() ? QByteArray() : m_display.name().toLocal8Bit());
    qputenv("WAYLAND_DISPLAY", environment.at(1));
    qputenv("XDG_SESSION_TYPE", environment.at(2));
    const std::optional<bool> visible = Platform::isWindowVisible("tst_platform_windowlookup");
    QCOMPARE(visible ? QVariant(*visible) : QVariant(), answer);
}

QTEST_GUILESS_MAIN(TestWindowLookup)
#include "tst_platform_windowlookup.moc"
