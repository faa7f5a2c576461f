#include "platform/Clipboard.h"

#include "platform/Log.h"

#include <QAbstractNativeEventFilter>
#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>
#include <QWindow>

#if defined(TAMVEX_HAVE_X11) && QT_CONFIG(xcb)
#include <xcb/xcb.h>

#include <cstdlib>
#endif

namespace tamvex {

namespace {
// Targets of the X selection protocol itself, which Qt lists beside the data's types: they
// describe the selection, not its contents, and the new owner answers them on its own.
bool isSelectionProtocolTarget(const QString& format) {
    static const QStringList targets{"TARGETS", "MULTIPLE", "TIMESTAMP", "SAVE_TARGETS", "DELETE",
                                     "INSERT_SELECTION", "INSERT_PROPERTY"};
    return targets.contains(format);
}
} // namespace

#if defined(TAMVEX_HAVE_X11) && QT_CONFIG(xcb)

// Qt stamps a selection claim with the time of the last X event this process handled. The
// server ignores a claim older than the selection's last change, so after another program
// (a clipboard manager, say) claimed the clipboard, a stale stamp would leave its text to be
// pasted. A property change on a window of ours brings a PropertyNotify with the server's
// current time; Qt takes the time of every PropertyNotify on its windows, so a claim the
// server ignored is made again with a fresh stamp.
struct SystemClipboard::X11 final : QAbstractNativeEventFilter {
    explicit X11(xcb_connection_t* connection) : connection(connection) {
        QCoreApplication::instance()->installNativeEventFilter(this);
    }
    ~X11() override {
        if (QCoreApplication::instance())
            QCoreApplication::instance()->removeNativeEventFilter(this);
    }

    bool nativeEventFilter(const QByteArray& type, void* message, qintptr*) override {
        if (type != "xcb_generic_event_t" || !window)
            return false;
        const auto* event = static_cast<const xcb_generic_event_t*>(message);
        if ((event->response_type & 0x7f) != XCB_PROPERTY_NOTIFY)
            return false;
        const auto* notify = static_cast<const xcb_property_notify_event_t*>(message);
        if (notify->window == window->winId() && notify->atom == stampAtom)
            stamped = true;
        return false; // Qt's own handling of the event is what takes its time
    }

    /// Brings the server's current time into Qt's connection.
    void refreshTime() {
        if (!window && !createWindow())
            return;
        stamped = false;
        xcb_change_property(connection, XCB_PROP_MODE_REPLACE, xcb_window_t(window->winId()), stampAtom,
                            XCB_ATOM_INTEGER, 32, 0, nullptr);
        xcb_flush(connection);
        // The server always answers a property change on a window that selected the
        // event; only a broken connection ends the wait otherwise. User input stays queued,
        // and so do the key sources, D-Bus and the network (socket notifiers): a hotkey
        // handled here would run in the middle of the paste.
        while (!stamped && !xcb_connection_has_error(connection))
            QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents | QEventLoop::ExcludeSocketNotifiers |
                                            QEventLoop::WaitForMoreEvents);
    }

    /// True when the CLIPBOARD selection belongs to a window made on our connection.
    bool ownsClipboard() const {
        xcb_get_selection_owner_reply_t* reply =
            xcb_get_selection_owner_reply(connection, xcb_get_selection_owner(connection, clipboardAtom), nullptr);
        if (!reply)
            return false;
        const xcb_setup_t* setup = xcb_get_setup(connection);
        const bool ours =
            reply->owner != XCB_NONE && (reply->owner & ~setup->resource_id_mask) == setup->resource_id_base;
        std::free(reply);
        return ours;
    }

    xcb_connection_t* connection;
    std::unique_ptr<QWindow> window; // never shown; made at the first claim
    xcb_atom_t stampAtom = XCB_NONE;
    xcb_atom_t clipboardAtom = XCB_NONE;
    bool stamped = false;

private:
    xcb_atom_t internAtom(const char* name) const {
        xcb_intern_atom_reply_t* reply =
            xcb_intern_atom_reply(connection, xcb_intern_atom(connection, 0, uint16_t(qstrlen(name)), name), nullptr);
        const xcb_atom_t atom = reply ? reply->atom : XCB_NONE;
        std::free(reply);
        return atom;
    }
    bool createWindow() {
        stampAtom = internAtom("_TAMVEX_SERVER_TIME");
        clipboardAtom = internAtom("CLIPBOARD");
        if (stampAtom == XCB_NONE || clipboardAtom == XCB_NONE)
            return false;
        window = std::make_unique<QWindow>();
        window->create();
        const auto id = xcb_window_t(window->winId());
        // Qt's windows select property changes already; adding the bit keeps that true.
        xcb_get_window_attributes_reply_t* attributes =
            xcb_get_window_attributes_reply(connection, xcb_get_window_attributes(connection, id), nullptr);
        const uint32_t mask = (attributes ? attributes->your_event_mask : 0) | XCB_EVENT_MASK_PROPERTY_CHANGE;
        std::free(attributes);
        xcb_change_window_attributes(connection, id, XCB_CW_EVENT_MASK, &mask);
        return true;
    }
};

SystemClipboard::SystemClipboard() {
    if (auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr)
        m_x11 = std::make_unique<X11>(x11->connection());
}

#else

struct SystemClipboard::X11 {
    void refreshTime() {}
    bool ownsClipboard() const { return true; }
};

SystemClipboard::SystemClipboard() = default;

#endif

SystemClipboard::~SystemClipboard() = default;

ClipboardSnapshot SystemClipboard::snapshot() const {
    // An owner may refuse a request stamped before its claim (Qt's owners do), and our
    // stamp is stale until we have handled the news of that claim: the snapshot would come
    // back empty, and the user's clipboard would be lost to the dictated text.
    if (m_x11)
        m_x11->refreshTime();
    const QMimeData* data = QGuiApplication::clipboard()->mimeData(QClipboard::Clipboard);
    if (!data)
        return {};
    ClipboardItem item;
    const QStringList formats = data->formats();
    for (const QString& format : formats) {
        if (isSelectionProtocolTarget(format))
            continue;
        const QByteArray bytes = data->data(format);
        if (!bytes.isEmpty())
            item.append({format, bytes});
    }
    if (item.isEmpty())
        return {};
    return {item};
}

void SystemClipboard::clear() {
    QGuiApplication::clipboard()->clear(QClipboard::Clipboard);
}

bool SystemClipboard::claim(const std::function<QMimeData*()>& make) {
    if (!m_x11) {
        QGuiApplication::clipboard()->setMimeData(make(), QClipboard::Clipboard);
        return true;
    }
    // Qt's own stamp first: it is usually recent enough, and a requestor whose time is a
    // little older than a fresh stamp would be refused. A new QMimeData for the second try,
    // since Qt ignores a claim with the data it already holds.
    QGuiApplication::clipboard()->setMimeData(make(), QClipboard::Clipboard);
    if (m_x11->ownsClipboard())
        return true;
    m_x11->refreshTime();
    QGuiApplication::clipboard()->setMimeData(make(), QClipboard::Clipboard);
    return m_x11->ownsClipboard();
}

bool SystemClipboard::setText(const QString& text) {
    return claim([&] {
        auto* data = new QMimeData;
        data->setText(text);
        return data;
    });
}

void SystemClipboard::restore(const ClipboardSnapshot& snapshot) {
    const bool restored = claim([&] {
        auto* data = new QMimeData;
        for (const ClipboardItem& item : snapshot)
            for (const auto& [format, bytes] : item)
                if (!data->hasFormat(format))
                    data->setData(format, bytes);
        return data;
    });
    if (!restored)
        logError("Clipboard not restored: another program took it during the paste");
}

} // namespace tamvex
