#include "platform/windowlookup.h"

#include <QByteArray>

#include <xcb/xcb.h>

#include <cstdlib>
#include <memory>

namespace
{
    template <typename T> using XcbReply = std::unique_ptr<T, decltype(&std::free)>;

    template <typename T> XcbReply<T> own(T *reply)
    {
        return XcbReply<T>(reply, &std::free);
    }

    xcb_atom_t internAtom(xcb_connection_t *connection, const char *name)
    {
        const auto reply
            = own(xcb_intern_atom_reply(connection, xcb_intern_atom(connection, 1, qstrlen(name), name), nullptr));
        return reply ? reply->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
    }

    QByteArray textProperty(xcb_connection_t *connection, xcb_window_t window, xcb_atom_t property, xcb_atom_t type)
    {
        if (property == XCB_ATOM_NONE)
            return {};
        const auto reply = own(xcb_get_property_reply(
            connection, xcb_get_property(connection, 0, window, property, type, 0, 1024), nullptr));
        if (!reply || reply->format != 8)
            return {};
        return QByteArray(static_cast<const char *>(xcb_get_property_value(reply.get())),
                          xcb_get_property_value_length(reply.get()));
    }

    struct Lookup
    {
        xcb_connection_t *connection;
        xcb_atom_t netWmName;
        xcb_atom_t utf8String;
        QByteArray title;

        bool isViewable(xcb_window_t window) const
        {
            const auto attributes = own(
                xcb_get_window_attributes_reply(connection, xcb_get_window_attributes(connection, window), nullptr));
            return attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE;
        }

        bool hasTitle(xcb_window_t window) const
        {
            // Modern toolkits set the UTF-8 name; WM_NAME is the fallback
            // that every client has.
            const QByteArray name = textProperty(connection, window, netWmName, utf8String);
            if (!name.isEmpty())
                return name == title;
            return textProperty(connection, window, XCB_ATOM_WM_NAME, XCB_ATOM_STRING) == title;
        }

        // A window manager puts each client inside a frame of its own, so the
        // client can sit one or two levels below the root.
        bool search(xcb_window_t parent, int depth) const
        {
            const auto tree = own(xcb_query_tree_reply(connection, xcb_query_tree(connection, parent), nullptr));
            if (!tree)
                return false;
            const xcb_window_t *children = xcb_query_tree_children(tree.get());
            const int count = xcb_query_tree_children_length(tree.get());
            for (int i = 0; i < count; ++i) {
                if (!isViewable(children[i]))
                    continue;
                if (hasTitle(children[i]))
                    return true;
                if (depth > 1 && search(children[i], depth - 1))
                    return true;
            }
            return false;
        }
    };
}

std::optional<bool> Platform::isWindowVisible(const QString &title)
{
    // Under Wayland a native window never reaches the X server, which would
    // then answer "no" for a game that is on the screen.
    if (!qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")
        || qEnvironmentVariable("XDG_SESSION_TYPE") == QLatin1String("wayland"))
        return std::nullopt;
    if (qEnvironmentVariableIsEmpty("DISPLAY"))
        return std::nullopt;

    xcb_connection_t *connection = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(connection)) {
        xcb_disconnect(connection);
        return std::nullopt;
    }

    const Lookup lookup {connection, internAtom(connection, "_NET_WM_NAME"), internAtom(connection, "UTF8_STRING"),
                         title.toUtf8()};
    bool found = false;
    for (auto screens = xcb_setup_roots_iterator(xcb_get_setup(connection)); screens.rem && !found;
         xcb_screen_next(&screens))
        found = lookup.search(screens.data->root, 3);

    xcb_disconnect(connection);
    return found;
}
