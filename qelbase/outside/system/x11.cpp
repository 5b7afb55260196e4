#include <poll.h>

#include <algorithm>
#include <climits>

#include "qelbase/outside/system/x11_internal.h"

namespace qel::sys::x11 {

std::unique_ptr<Connection> Connection::open() {
  int number = 0;
  xcb_connection_t* connection = xcb_connect(nullptr, &number);
  if (xcb_connection_has_error(connection) == 0) {
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
    while (number-- > 0 && screens.rem > 1) xcb_screen_next(&screens);
    if (screens.rem > 0) {
      return std::unique_ptr<Connection>(new Connection(connection, screens.data->root));
    }
  }
  xcb_disconnect(connection);
  return nullptr;
}

Connection::Connection(xcb_connection_t* connection, xcb_window_t root)
    : m_connection(connection), m_root(root), m_window(makeWindow()) {}

xcb_window_t Connection::makeWindow() const {
  const std::uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
  const xcb_window_t window = xcb_generate_id(m_connection);
  xcb_create_window(m_connection, 0, window, m_root, -1, -1, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_ONLY,
                    XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK, &events);
  return window;
}

Connection::~Connection() {
  xcb_disconnect(m_connection);
}

xcb_atom_t Connection::atom(std::string_view name) const {
  const auto cookie =
      xcb_intern_atom(m_connection, 0, static_cast<std::uint16_t>(name.size()), name.data());
  const Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(m_connection, cookie, nullptr));
  return reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
}

xcb_timestamp_t Connection::time() const {
  const xcb_atom_t mark = atom("QEL_TIME");
  xcb_change_property(m_connection, XCB_PROP_MODE_APPEND, m_window, mark, XCB_ATOM_STRING, 8, 0,
                      nullptr);
  const auto deadline = Clock::now() + std::chrono::seconds(5);
  while (const Event event = next(deadline)) {
    if (KindOf(event) != XCB_PROPERTY_NOTIFY) continue;
    const auto& changed = As<xcb_property_notify_event_t>(event);
    if (changed.atom == mark) return changed.time;
  }
  return XCB_CURRENT_TIME;
}

xcb_window_t Connection::ownerOf(xcb_atom_t selection) const {
  const auto cookie = xcb_get_selection_owner(m_connection, selection);
  const Reply<xcb_get_selection_owner_reply_t> reply(
      xcb_get_selection_owner_reply(m_connection, cookie, nullptr));
  return reply ? reply->owner : xcb_window_t{XCB_WINDOW_NONE};
}

Event Connection::next(Clock::time_point deadline) const {
  xcb_flush(m_connection);
  while (true) {
    if (Event event{xcb_poll_for_event(m_connection)}) return event;
    if (isLost()) return {};
    int wait = -1;
    if (deadline != Clock::time_point::max()) {
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
      if (left.count() <= 0) return {};
      wait = static_cast<int>(std::min<long long>(left.count(), INT_MAX));
    }
    pollfd descriptor{xcb_get_file_descriptor(m_connection), POLLIN, 0};
    poll(&descriptor, 1, wait);
  }
}

}  // namespace qel::sys::x11
