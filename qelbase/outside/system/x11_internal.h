#pragma once
// One connection to an X11 display, with unmapped windows, for the exchange of selections
// (Inter-Client Communication Conventions Manual 2.0, section 2).

#include <xcb/xcb.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string_view>

namespace qel::sys::x11 {

using Clock = std::chrono::steady_clock;

struct Free {
  void operator()(void* memory) const { std::free(memory); }
};
template <typename T>
using Reply = std::unique_ptr<T, Free>;
using Event = Reply<xcb_generic_event_t>;

inline std::uint8_t KindOf(const Event& event) {
  return event->response_type & 0x7F;  // the top bit marks events that a program sent
}
template <typename T>
const T& As(const Event& event) {
  return *reinterpret_cast<const T*>(event.get());
}

// Belongs to one thread at a time. A lost connection makes every answer empty.
class Connection {
 public:
  // To the display that DISPLAY names; null if it cannot be reached.
  [[nodiscard]] static std::unique_ptr<Connection> open();
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  xcb_connection_t* get() const { return m_connection; }
  xcb_window_t window() const { return m_window; }  // one of its own
  bool isLost() const { return xcb_connection_has_error(m_connection) != 0; }

  // An unmapped window that reports changes of its properties.
  [[nodiscard]] xcb_window_t makeWindow() const;
  [[nodiscard]] xcb_atom_t atom(std::string_view name) const;
  // The server's present time, which requests about selections carry. Events that come before the
  // answer are dropped. 0, which means "now" to the server, if there is no answer.
  [[nodiscard]] xcb_timestamp_t time() const;
  [[nodiscard]] xcb_window_t ownerOf(xcb_atom_t selection) const;
  // Sends what is waiting, then gives the next event; empty at the deadline. Clock's last moment
  // means no deadline.
  [[nodiscard]] Event next(Clock::time_point deadline) const;

 private:
  Connection(xcb_connection_t* connection, xcb_window_t root);

  xcb_connection_t* m_connection;
  xcb_window_t m_root;
  xcb_window_t m_window;
};

}  // namespace qel::sys::x11
