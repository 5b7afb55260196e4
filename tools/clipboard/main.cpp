// clipboard-owner: owns the desktop's clipboard for a program that set a text, until another
// program takes it over or the desktop ends. The library starts it
// (outside/system/clipboard_owner.cpp):
//
//   clipboard-owner [TARGET TYPE OFFSET SIZE]... < content > report
//
// The arguments tell which bytes of the content answer a request for a target. One byte goes to the
// report when the clipboard is owned.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <list>
#include <optional>
#include <string_view>
#include <vector>

#include "qelbase/outside/system/x11_internal.h"

namespace {

using namespace std::chrono_literals;
using qel::sys::x11::As;
using qel::sys::x11::Clock;
using qel::sys::x11::Connection;
using qel::sys::x11::Event;
using qel::sys::x11::Reply;

// A larger text goes in pieces of this size.
constexpr std::size_t kPiece = std::size_t{256} << 10;

// How long a lost owner still serves a requestor that takes no piece.
constexpr auto kPatience = 10s;

struct Offer {
  std::string_view name;
  std::string_view type_name;
  std::string_view bytes;
  xcb_atom_t target = XCB_ATOM_NONE;
  xcb_atom_t type = XCB_ATOM_NONE;
};

// A text on its way in pieces.
struct Transfer {
  xcb_window_t requestor;
  xcb_atom_t property;
  xcb_atom_t type;
  std::string_view rest;
};

class Owner {
 public:
  Owner(const Connection& connection, std::vector<Offer> offers)
      : m_x(connection), m_offers(std::move(offers)) {
    for (Offer& offer : m_offers) {
      offer.target = m_x.atom(offer.name);
      offer.type = m_x.atom(offer.type_name);
    }
  }

  bool take() {
    m_since = m_x.time();
    xcb_set_selection_owner(m_x.get(), m_x.window(), m_clipboard, m_since);
    m_owns = m_x.ownerOf(m_clipboard) == m_x.window();
    return m_owns;
  }

  void serve() {
    while (m_owns || !m_transfers.empty()) {
      const auto deadline = m_owns ? Clock::time_point::max() : Clock::now() + kPatience;
      const Event event = m_x.next(deadline);
      if (!event) return;
      handle(event);
      xcb_flush(m_x.get());
    }
  }

 private:
  void handle(const Event& event) {
    switch (KindOf(event)) {
      case XCB_SELECTION_REQUEST:
        return answer(As<xcb_selection_request_event_t>(event));
      case XCB_SELECTION_CLEAR:
        m_owns = m_owns && As<xcb_selection_clear_event_t>(event).selection != m_clipboard;
        return;
      case XCB_PROPERTY_NOTIFY:
        return goOn(As<xcb_property_notify_event_t>(event));
      case XCB_DESTROY_NOTIFY:
        m_transfers.remove_if([&](const Transfer& transfer) {
          return transfer.requestor == As<xcb_destroy_notify_event_t>(event).window;
        });
        return;
      default:
        return;
    }
  }

  void answer(const xcb_selection_request_event_t& request) {
    // Old programs name no property.
    xcb_atom_t property = request.property != XCB_ATOM_NONE ? request.property : request.target;
    // The server's milliseconds start again at 0 after 49 days.
    const bool is_of_now =
        request.time == XCB_CURRENT_TIME || static_cast<std::int32_t>(request.time - m_since) >= 0;
    if (request.selection != m_clipboard || !is_of_now ||
        !give(request.requestor, request.target, property)) {
      property = XCB_ATOM_NONE;
    }
    xcb_selection_notify_event_t notice{};
    notice.response_type = XCB_SELECTION_NOTIFY;
    notice.time = request.time;
    notice.requestor = request.requestor;
    notice.selection = request.selection;
    notice.target = request.target;
    notice.property = property;
    char bytes[32]{};
    std::memcpy(bytes, &notice, sizeof notice);
    xcb_send_event(m_x.get(), 0, request.requestor, XCB_EVENT_MASK_NO_EVENT, bytes);
  }

  bool give(xcb_window_t requestor, xcb_atom_t target, xcb_atom_t property) {
    if (target == m_targets) return giveTargets(requestor, property);
    if (target == m_multiple) return giveMany(requestor, property);
    if (target == m_timestamp) {
      putWords(requestor, property, XCB_ATOM_INTEGER, &m_since, 1);
      return true;
    }
    const auto offer = std::ranges::find(m_offers, target, &Offer::target);
    if (offer == m_offers.end()) return false;
    giveText(requestor, property, *offer);
    return true;
  }

  bool giveTargets(xcb_window_t requestor, xcb_atom_t property) {
    std::vector<xcb_atom_t> atoms{m_targets, m_multiple, m_timestamp};
    for (const Offer& offer : m_offers) atoms.push_back(offer.target);
    putWords(requestor, property, XCB_ATOM_ATOM, atoms.data(), atoms.size());
    return true;
  }

  // Pairs of target and property; the property of what there is not becomes none.
  bool giveMany(xcb_window_t requestor, xcb_atom_t property) {
    constexpr std::uint32_t most_words = 1024;
    const auto cookie =
        xcb_get_property(m_x.get(), 0, requestor, property, XCB_ATOM_ANY, 0, most_words);
    const Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(m_x.get(), cookie, nullptr));
    if (!reply || reply->format != 32) return false;
    const auto size = static_cast<std::size_t>(xcb_get_property_value_length(reply.get()));
    std::vector<xcb_atom_t> atoms(size / sizeof(xcb_atom_t));
    if (atoms.empty()) return false;
    std::memcpy(atoms.data(), xcb_get_property_value(reply.get()),
                atoms.size() * sizeof(xcb_atom_t));
    for (std::size_t i = 0; i + 1 < atoms.size(); i += 2) {
      const bool is_nested = atoms[i] == m_multiple;
      if (is_nested || !give(requestor, atoms[i], atoms[i + 1])) atoms[i + 1] = XCB_ATOM_NONE;
    }
    putWords(requestor, property, m_x.atom("ATOM_PAIR"), atoms.data(), atoms.size());
    return true;
  }

  void giveText(xcb_window_t requestor, xcb_atom_t property, const Offer& offer) {
    if (offer.bytes.size() <= kPiece) return putBytes(requestor, property, offer.type, offer.bytes);
    const std::uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE | XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    xcb_change_window_attributes(m_x.get(), requestor, XCB_CW_EVENT_MASK, &events);
    std::erase_if(m_transfers, [&](const Transfer& transfer) {
      return transfer.requestor == requestor && transfer.property == property;
    });
    m_transfers.push_back({requestor, property, offer.type, offer.bytes});
    const auto size = static_cast<std::uint32_t>(offer.bytes.size());
    putWords(requestor, property, m_x.atom("INCR"), &size, 1);
  }

  // The requestor took a piece away: here is the next. The last one is empty.
  void goOn(const xcb_property_notify_event_t& changed) {
    if (changed.state != XCB_PROPERTY_DELETE) return;
    const auto transfer = std::ranges::find_if(m_transfers, [&](const Transfer& running) {
      return running.requestor == changed.window && running.property == changed.atom;
    });
    if (transfer == m_transfers.end()) return;
    const std::string_view piece = transfer->rest.substr(0, kPiece);
    putBytes(transfer->requestor, transfer->property, transfer->type, piece);
    transfer->rest.remove_prefix(piece.size());
    if (piece.empty()) m_transfers.erase(transfer);
  }

  void putBytes(xcb_window_t window, xcb_atom_t property, xcb_atom_t type, std::string_view bytes) {
    xcb_change_property(m_x.get(), XCB_PROP_MODE_REPLACE, window, property, type, 8,
                        static_cast<std::uint32_t>(bytes.size()), bytes.data());
  }

  void putWords(xcb_window_t window, xcb_atom_t property, xcb_atom_t type,
                const std::uint32_t* words, std::size_t count) {
    xcb_change_property(m_x.get(), XCB_PROP_MODE_REPLACE, window, property, type, 32,
                        static_cast<std::uint32_t>(count), words);
  }

  const Connection& m_x;
  std::vector<Offer> m_offers;
  std::list<Transfer> m_transfers;
  xcb_timestamp_t m_since = XCB_CURRENT_TIME;
  bool m_owns = false;
  const xcb_atom_t m_clipboard = m_x.atom("CLIPBOARD");
  const xcb_atom_t m_targets = m_x.atom("TARGETS");
  const xcb_atom_t m_multiple = m_x.atom("MULTIPLE");
  const xcb_atom_t m_timestamp = m_x.atom("TIMESTAMP");
};

std::optional<std::string_view> standardInput() {
  struct stat status {};
  if (fstat(STDIN_FILENO, &status) != 0) return std::nullopt;
  const auto size = static_cast<std::size_t>(status.st_size);
  if (size == 0) return std::string_view();
  void* data = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, STDIN_FILENO, 0);
  if (data == MAP_FAILED) return std::nullopt;
  return std::string_view(static_cast<const char*>(data), size);
}

bool parse(const char* text, std::size_t& number) {
  const char* end = text + std::strlen(text);
  return std::from_chars(text, end, number).ptr == end && text != end;
}

std::optional<std::vector<Offer>> offersOf(int count, char** arguments, std::string_view content) {
  std::vector<Offer> offers;
  for (int i = 1; i + 3 < count; i += 4) {
    std::size_t offset = 0;
    std::size_t size = 0;
    if (!parse(arguments[i + 2], offset) || !parse(arguments[i + 3], size)) return std::nullopt;
    if (offset > content.size() || size > content.size() - offset) return std::nullopt;
    offers.push_back({arguments[i], arguments[i + 1], content.substr(offset, size)});
  }
  return offers;
}

// Tells the starter, and holds nothing of it any more.
void report() {
  const char owned = '+';
  (void)!write(STDOUT_FILENO, &owned, 1);
  const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO}) dup2(nowhere, descriptor);
  close(nowhere);
  (void)!chdir("/");
}

}  // namespace

int main(int count, char** arguments) {
  const auto content = standardInput();
  const auto offers = content ? offersOf(count, arguments, *content) : std::nullopt;
  if (!offers) return 2;
  const pid_t background = fork();
  if (background != 0) _exit(background < 0 ? 1 : 0);
  setsid();
  const auto connection = Connection::open();
  if (!connection) return 1;
  Owner owner(*connection, *offers);
  if (!owner.take()) return 1;
  report();
  owner.serve();
  return 0;
}
