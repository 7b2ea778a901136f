#include <QtTest>

#include <xcb/xcb.h>

#include <cstdlib>

#include "platform/windowlookup.h"
#include "support/virtualdisplay.h"

namespace
{
    // Beyond Latin-1, so that only a reading of the UTF-8 title finds it.
    const QString Greek = QStringLiteral("Hollowmere \u03a9\u03bc\u03ad\u03b3\u03b1");
}

// Asks a private X server for a window under the environments of different
// desktop sessions.
class TestWindowLookup : public QObject
{
    Q_OBJECT

private slots:
    void session_data();
    void session();
    void title_data();
    void title();

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

void TestWindowLookup::title_data()
{
    QTest::addColumn<QString>("asked");
    QTest::addColumn<bool>("mapped");
    QTest::addColumn<bool>("framed"); // inside a parent window, as a window manager puts it
    QTest::addColumn<bool>("utf8"); // titled through _NET_WM_NAME, or WM_NAME alone
    QTest::addColumn<bool>("found");

    QTest::newRow("shown, UTF-8 title") << Greek << true << false << true << true;
    QTest::newRow("inside a frame, WM_NAME only") << QStringLiteral("Hollowmere") << true << true << false << true;
    QTest::newRow("hidden") << Greek << false << false << true << false;
    QTest::newRow("another letter case") << Greek.toUpper() << true << false << true << false;
    QTest::newRow("a prefix of the title") << QStringLiteral("Hollowmere") << true << true << true << false;
}

void TestWindowLookup::title()
{
    QFETCH(QString, asked);
    QFETCH(bool, mapped);
    QFETCH(bool, framed);
    QFETCH(bool, utf8);
    QFETCH(bool, found);

    if (!m_display.isRunning())
        QSKIP("Xvfb could not be started");
    qputenv("DISPLAY", m_display.name().toLocal8Bit());
    qputenv("WAYLAND_DISPLAY", "");
    qputenv("XDG_SESSION_TYPE", "x11");
    xcb_connection_t *connection = xcb_connect(nullptr, nullptr);
    QVERIFY(!xcb_connection_has_error(connection));
    const xcb_screen_t *screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
    const auto makeWindow = [connection, screen](xcb_window_t parent) {
        const xcb_window_t window = xcb_generate_id(connection);
        xcb_create_window(connection, XCB_COPY_FROM_PARENT, window, parent, 0, 0, 64, 64, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual, 0, nullptr);
        return window;
    };
    const xcb_window_t frame = framed ? makeWindow(screen->root) : screen->root;
    const xcb_window_t window = makeWindow(frame);
    const QByteArray text = (utf8 ? Greek : QStringLiteral("Hollowmere")).toUtf8();
    const auto atom = [connection](const char *name) {
        xcb_intern_atom_reply_t *reply
            = xcb_intern_atom_reply(connection, xcb_intern_atom(connection, 0, qstrlen(name), name), nullptr);
        const xcb_atom_t value = reply->atom;
        std::free(reply);
        return value;
    };
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window,
                        utf8 ? atom("_NET_WM_NAME") : static_cast<xcb_atom_t>(XCB_ATOM_WM_NAME),
                        utf8 ? atom("UTF8_STRING") : static_cast<xcb_atom_t>(XCB_ATOM_STRING), 8, text.size(),
                        text.constData());
    if (framed)
        xcb_map_window(connection, frame);
    if (mapped)
        xcb_map_window(connection, window);
    // A round trip, so that the server has made all of the above.
    std::free(xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));

    QCOMPARE(Platform::isWindowVisible(asked), std::optional<bool>(found));
    xcb_disconnect(connection);
}

QTEST_GUILESS_MAIN(TestWindowLookup)
#include "tst_platform_windowlookup.moc"
