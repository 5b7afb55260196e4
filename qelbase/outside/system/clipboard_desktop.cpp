// The clipboard of an X11 desktop: its selection CLIPBOARD. Reading asks the program that owns it;
// what is set goes to a program of this project, which owns it from then on.

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <span>

#include "qelbase/outside/system/clipboard_internal.h"
#include "qelbase/outside/system/environment_internal.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/text.h"
#include "qelbase/outside/system/x11_internal.h"

namespace qel::sys::clipboard {

namespace {

using namespace std::chrono_literals;
using x11::Clock;
using x11::Connection;
using x11::Event;
using x11::Reply;

constexpr auto kAnswerLimit = 1s;     // for what there is
constexpr auto kProgressLimit = 5s;   // for the text, and again for each piece
constexpr auto kTransferLimit = 60s;  // for all pieces

// The very bytes of a text that this library set.
constexpr const char* ownTarget(UINT format) {
  return format == 13 ? "application/x-qelbase-text16" : "application/x-qelbase-text8";
}

struct ForeignTarget {
  const char* name;
  bool is_latin;
};
constexpr std::array kForeignTargets = {
    ForeignTarget{"UTF8_STRING", false},
    ForeignTarget{"text/plain;charset=utf-8", false},
    ForeignTarget{"STRING", true},
};

// One conversion of the selection. The answer comes to a window of its own, so that a late answer
// to an earlier question reaches nothing.
class Question {
 public:
  Question(const Connection& connection, xcb_atom_t selection)
      : m_x(connection),
        m_selection(selection),
        m_property(connection.atom("QEL_CLIPBOARD")),
        m_window(connection.makeWindow()) {}
  ~Question() { xcb_destroy_window(m_x.get(), m_window); }
  Question(const Question&) = delete;
  Question& operator=(const Question&) = delete;

  // Fills `bytes`. 0, or 2 if the owner hasn't got that, 109 if it ended, 1460 if it is silent.
  DWORD ask(const char* target, Clock::duration limit) {
    m_owner = m_x.ownerOf(m_selection);
    if (m_owner == XCB_WINDOW_NONE) return ERROR_FILE_NOT_FOUND;
    m_last = Clock::now() + kTransferLimit;
    m_limit = limit;
    const xcb_timestamp_t now = m_x.time();
    watchOwner();
    xcb_convert_selection(m_x.get(), m_window, m_selection, m_x.atom(target), m_property, now);
    return takeAnswer();
  }

  const std::string& bytes() const { return m_bytes; }

 private:
  // Its end shows as an event; so does, as an error, that it has ended already.
  void watchOwner() const {
    const std::uint32_t events = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    xcb_change_window_attributes(m_x.get(), m_owner, XCB_CW_EVENT_MASK, &events);
  }

  // The next event that `wanted` accepts, or nothing and the code.
  template <typename Wanted>
  Event await(Wanted wanted, DWORD& code) {
    const auto deadline = std::min(m_last, Clock::now() + m_limit);
    while (Event event = m_x.next(deadline)) {
      const std::uint8_t kind = KindOf(event);
      if (wanted(kind, event)) return event;
      const bool is_error = event->response_type == 0;
      if (is_error || (kind == XCB_DESTROY_NOTIFY &&
                       x11::As<xcb_destroy_notify_event_t>(event).window == m_owner)) {
        code = ERROR_BROKEN_PIPE;
        return {};
      }
    }
    code = m_x.isLost() ? ERROR_BROKEN_PIPE : ERROR_TIMEOUT;
    return {};
  }

  DWORD takeAnswer() {
    DWORD code = ERROR_SUCCESS;
    const Event answer = await(
        [&](std::uint8_t kind, const Event& event) {
          return kind == XCB_SELECTION_NOTIFY &&
                 x11::As<xcb_selection_notify_event_t>(event).requestor == m_window;
        },
        code);
    if (!answer) return code;
    if (x11::As<xcb_selection_notify_event_t>(answer).property == XCB_ATOM_NONE) {
      return ERROR_FILE_NOT_FOUND;
    }
    const xcb_atom_t incremental = m_x.atom("INCR");
    const Reply<xcb_get_property_reply_t> piece = takeProperty();
    if (!piece) return ERROR_BROKEN_PIPE;
    return piece->type == incremental ? takePieces() : add(piece);
  }

  // Each piece is taken away, which asks for the next one; an empty one is the last.
  DWORD takePieces() {
    DWORD code = ERROR_SUCCESS;
    while (true) {
      const Event written = await(
          [&](std::uint8_t kind, const Event& event) {
            if (kind != XCB_PROPERTY_NOTIFY) return false;
            const auto& changed = x11::As<xcb_property_notify_event_t>(event);
            return changed.window == m_window && changed.atom == m_property &&
                   changed.state == XCB_PROPERTY_NEW_VALUE;
          },
          code);
      if (!written) return code;
      const Reply<xcb_get_property_reply_t> piece = takeProperty();
      if (!piece) return ERROR_BROKEN_PIPE;
      if (xcb_get_property_value_length(piece.get()) == 0) return ERROR_SUCCESS;
      code = add(piece);
      if (code != ERROR_SUCCESS) return code;
    }
  }

  Reply<xcb_get_property_reply_t> takeProperty() const {
    const auto cookie = xcb_get_property(m_x.get(), 1, m_window, m_property, XCB_ATOM_ANY, 0,
                                         static_cast<std::uint32_t>(kMostBytes / 4));
    return Reply<xcb_get_property_reply_t>(xcb_get_property_reply(m_x.get(), cookie, nullptr));
  }

  DWORD add(const Reply<xcb_get_property_reply_t>& piece) {
    const auto size = static_cast<std::size_t>(xcb_get_property_value_length(piece.get()));
    if (piece->bytes_after > 0 || size > kMostBytes - m_bytes.size()) return ERROR_FILE_TOO_LARGE;
    m_bytes.append(static_cast<const char*>(xcb_get_property_value(piece.get())), size);
    return ERROR_SUCCESS;
  }

  const Connection& m_x;
  xcb_atom_t m_selection;
  xcb_atom_t m_property;
  xcb_window_t m_window;
  xcb_window_t m_owner = XCB_WINDOW_NONE;
  Clock::time_point m_last;
  Clock::duration m_limit{};
  std::string m_bytes;
};

class Desktop : public Place {
 public:
  explicit Desktop(std::unique_ptr<Connection> connection)
      : m_x(std::move(connection)), m_selection(m_x->atom("CLIPBOARD")) {}

  bool has(UINT format) override { return targetOf(format, askTargets()).has_value(); }

  DWORD read(UINT format, std::string& text) override {
    const std::optional<ForeignTarget> target = targetOf(format, askTargets());
    if (!target) return m_code == ERROR_SUCCESS ? ERROR_FILE_NOT_FOUND : m_code;
    Question question(*m_x, m_selection);
    const DWORD code = question.ask(target->name, kProgressLimit);
    if (code != ERROR_SUCCESS) return code;
    const bool is_own = std::string_view(target->name) == ownTarget(format);
    text = is_own ? question.bytes() : FromForeign(question.bytes(), target->is_latin);
    return ERROR_SUCCESS;
  }

  DWORD empty() override {
    xcb_set_selection_owner(m_x->get(), XCB_WINDOW_NONE, m_selection, m_x->time());
    (void)m_x->ownerOf(m_selection);  // waits until it is done
    return m_x->isLost() ? ERROR_BROKEN_PIPE : ERROR_SUCCESS;
  }

  DWORD put(const Texts& texts) override { return StartOwner(OffersOf(texts)); }

 private:
  // What the owner has; empty, and m_code, on failure.
  std::vector<xcb_atom_t> askTargets() {
    Question question(*m_x, m_selection);
    m_code = question.ask("TARGETS", kAnswerLimit);
    std::vector<xcb_atom_t> atoms;
    if (m_code != ERROR_SUCCESS) return atoms;
    atoms.resize(question.bytes().size() / sizeof(xcb_atom_t));
    if (!atoms.empty()) {
      std::memcpy(atoms.data(), question.bytes().data(), atoms.size() * sizeof(xcb_atom_t));
    }
    return atoms;
  }

  // What to ask for; nothing if there is no text in the format. An owner that has texts of this
  // library in one format only offers them to others in more ways.
  std::optional<ForeignTarget> targetOf(UINT format, std::span<const xcb_atom_t> atoms) const {
    const auto offers = [&](const char* name) {
      const xcb_atom_t wanted = m_x->atom(name);
      return wanted != XCB_ATOM_NONE && std::ranges::find(atoms, wanted) != atoms.end();
    };
    if (atoms.empty()) return std::nullopt;
    if (offers(ownTarget(format))) return ForeignTarget{ownTarget(format), false};
    for (const UINT other : kFormats) {
      if (offers(ownTarget(other))) return std::nullopt;
    }
    if (format != 13) return std::nullopt;
    const auto found = std::ranges::find_if(
        kForeignTargets, [&](const ForeignTarget& target) { return offers(target.name); });
    return found == kForeignTargets.end() ? std::nullopt : std::optional(*found);
  }

  std::unique_ptr<Connection> m_x;
  xcb_atom_t m_selection;
  DWORD m_code = ERROR_SUCCESS;
};

std::wstring withBareLineFeeds(std::wstring_view text) {
  std::wstring lines;
  lines.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (!text.substr(i).starts_with(L"\r\n")) lines += text[i];
  }
  return lines;
}

std::wstring withReturns(std::wstring_view text) {
  std::wstring lines;
  lines.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == L'\n' && (i == 0 || text[i - 1] != L'\r')) lines += L'\r';
    lines += text[i];
  }
  return lines;
}

std::wstring fromLatin(std::string_view bytes) {
  std::wstring text;
  for (const char c : bytes) text += static_cast<wchar_t>(static_cast<unsigned char>(c));
  return text;
}

std::string latinText(std::wstring_view text) {
  std::string latin(text.size(), '?');
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] < 0x100) latin[i] = static_cast<char>(text[i]);
  }
  return latin;
}

}  // namespace

std::string DisplayName() {
  const std::string display = NativeEnvironmentValue("DISPLAY");
  char* host = nullptr;
  int number = 0;
  if (display.empty() || xcb_parse_display(display.c_str(), &host, &number, nullptr) == 0)
    return {};
  const Reply<char> owner(host);
  std::string name = std::string(host) + ":" + std::to_string(number);
  std::ranges::replace(name, '/', '_');
  return name;
}

std::unique_ptr<Place> DesktopPlace() {
  std::unique_ptr<Connection> connection = Connection::open();
  return connection ? std::make_unique<Desktop>(std::move(connection)) : nullptr;
}

std::string FromForeign(std::string_view bytes, bool is_latin) {
  bytes = bytes.substr(0, bytes.find('\0'));
  return ToUtf16Le(withReturns(is_latin ? fromLatin(bytes) : Widen(bytes, CP_UTF8)));
}

std::vector<Offer> OffersOf(const Texts& texts) {
  std::vector<Offer> offers;
  for (const auto& [format, bytes] : texts) {
    offers.push_back({ownTarget(format), ownTarget(format), bytes});
  }
  const auto wide = texts.find(13);
  const auto narrow = texts.find(1);
  std::wstring text;
  if (wide != texts.end()) text = FromUtf16Le(wide->second);
  if (wide == texts.end() && narrow != texts.end()) text = Widen(narrow->second);
  text = withBareLineFeeds(text);
  const std::string utf8 = Narrow(text, CP_UTF8);
  offers.push_back({"UTF8_STRING", "UTF8_STRING", utf8});
  offers.push_back({"text/plain;charset=utf-8", "text/plain;charset=utf-8", utf8});
  offers.push_back({"TEXT", "UTF8_STRING", utf8});
  offers.push_back({"STRING", "STRING", latinText(text)});
  return offers;
}

}  // namespace qel::sys::clipboard
