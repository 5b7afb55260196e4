#include "qelbase/outside/system/names.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <shared_mutex>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/lasting_internal.h"
#include "qelbase/outside/system/names_internal.h"
#include "qelbase/outside/system/syscalls_internal.h"

namespace qel::sys {

namespace {

// --- roots -------------------------------------------------------------------------------------

std::wstring asciiLower(std::wstring_view text) {
  std::wstring lower(text);
  for (wchar_t& c : lower) {
    if (c >= L'A' && c <= L'Z') c += L'a' - L'A';
  }
  return lower;
}

std::optional<std::size_t> driveIndex(wchar_t letter) {
  if (letter >= L'A' && letter <= L'Z') return letter - L'A';
  if (letter >= L'a' && letter <= L'z') return letter - L'a';
  return std::nullopt;
}

// Native folders without a closing slash, so that "/" is the empty text.
struct Roots {
  std::shared_mutex lock;
  std::array<std::optional<std::string>, 26> drives;
  std::map<std::wstring, std::string> shares;  // by server name in small letters

  Roots() { drives[2] = ""; }
};

Roots& roots() {
  static Lasting<Roots> instance;
  return *instance;
}

std::string rootText(std::string_view native_root) {
  std::error_code ignored;
  std::string text =
      std::filesystem::absolute(std::filesystem::path(native_root), ignored).lexically_normal();
  while (!text.empty() && text.back() == '/') text.pop_back();
  return text;
}

std::optional<std::string> rootOfDrive(wchar_t letter) {
  Roots& all = roots();
  const std::shared_lock guard(all.lock);
  return all.drives[*driveIndex(letter)];
}

std::optional<std::string> rootOfShare(std::wstring_view server) {
  Roots& all = roots();
  const std::shared_lock guard(all.lock);
  const auto found = all.shares.find(asciiLower(server));
  if (found == all.shares.end()) return std::nullopt;
  return found->second;
}

bool liesBelow(std::string_view native, std::string_view root) {
  return native.starts_with(root) && (native.size() == root.size() || native[root.size()] == '/');
}

bool currentFolderLiesBelow(std::string_view root) {
  if (root.empty()) return true;
  std::array<char, PATH_MAX> folder;
  return Calls().getcwd(folder.data(), folder.size()) && liesBelow(folder.data(), root);
}

// --- characters --------------------------------------------------------------------------------

// U+F001 to U+F0FF carry one raw byte each.
constexpr char32_t byte_block = 0xF000;

constexpr bool carriesByte(char32_t c) {
  return c > byte_block && c <= byte_block + 0xFF;
}

constexpr wchar_t carry(char byte) {
  return static_cast<wchar_t>(byte_block + static_cast<unsigned char>(byte));
}

constexpr std::array<bool, 0x80> refused = [] {
  std::array<bool, 0x80> table{};
  for (std::size_t c = 0; c < 32; ++c) table[c] = true;
  for (const char32_t c : std::u32string_view(U"<>\"|?*:")) table[c] = true;
  return table;
}();

constexpr bool isRefused(char32_t c) {
  return c < refused.size() && refused[c];
}

constexpr bool isHighSurrogate(char32_t c) {
  return c >= 0xD800 && c < 0xDC00;
}
constexpr bool isLowSurrogate(char32_t c) {
  return c >= 0xDC00 && c < 0xE000;
}

// A lone surrogate gets the three bytes that its number would have.
void appendUtf8(char32_t c, std::string& out) {
  const auto tail = [c](int shift) { return static_cast<char>(0x80 | (c >> shift & 0x3F)); };
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += {static_cast<char>(0xC0 | c >> 6), tail(0)};
  } else if (c < 0x10000) {
    out += {static_cast<char>(0xE0 | c >> 12), tail(6), tail(0)};
  } else {
    out += {static_cast<char>(0xF0 | c >> 18), tail(12), tail(6), tail(0)};
  }
}

// Takes one character of `text` at `at` and moves `at` behind it; two surrogates are one character.
char32_t takeCharacter(std::wstring_view text, std::size_t& at) {
  const char32_t c = text[at++];
  if (!isHighSurrogate(c) || at == text.size()) return c;
  const char32_t low = text[at];
  if (!isLowSurrogate(low)) return c;
  ++at;
  return 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
}

void appendNative(char32_t c, std::string& out) {
  if (carriesByte(c)) {
    out += static_cast<char>(c - byte_block);
  } else {
    appendUtf8(c, out);
  }
}

// The length of the well-formed UTF-8 sequence at the start of `text` (no surrogates, no overlong
// forms), or 0; its character goes to `c`.
std::size_t utf8Length(std::string_view text, char32_t& c) {
  const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char first = byte(0);
  const std::size_t length = first < 0x80 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
  if ((first >= 0x80 && first < 0xC2) || first > 0xF4 || length > text.size()) return 0;
  c = length == 1 ? first : first & (0x7F >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
    c = c << 6 | (byte(i) & 0x3F);
  }
  constexpr std::array<char32_t, 5> smallest = {0, 0, 0x80, 0x800, 0x10000};
  const bool surrogate = c >= 0xD800 && c < 0xE000;
  return c >= smallest[length] && c <= 0x10FFFF && !surrogate ? length : 0;
}

// Appends the text of `native`; bytes that are no UTF-8, that look like carried ones, or that
// `must_carry` wants, are carried.
template <class MustCarry>
void appendWide(std::string_view native, MustCarry must_carry, std::wstring& out) {
  while (!native.empty()) {
    char32_t c = 0;
    const std::size_t length = utf8Length(native, c);
    if (length == 0 || (length == 1 && must_carry(c))) {
      out += carry(native.front());
    } else if (carriesByte(c)) {
      for (const char byte : native.substr(0, length)) out += carry(byte);
    } else {
      out += static_cast<wchar_t>(c);
    }
    native.remove_prefix(std::max<std::size_t>(length, 1));
  }
}

// --- to native ---------------------------------------------------------------------------------

// A native name while it is put together from components. `..` never climbs above the base.
class NativeName {
 public:
  explicit NativeName(const std::optional<std::string>& base)
      : m_text(base.value_or("")), m_absolute(base.has_value()), m_floor(m_text.size()) {}

  // False for a component that no file system of the told kind takes.
  bool append(std::wstring_view component) {
    if (m_absolute || !m_text.empty()) m_text += '/';
    const std::size_t start = m_text.size();
    for (std::size_t at = 0; at < component.size();) {
      const char32_t c = takeCharacter(component, at);
      if (isRefused(c) || c == byte_block + '/' || c > 0x10FFFF) return false;
      appendNative(c, m_text);
    }
    return !IsDots(std::string_view(m_text).substr(start));
  }

  void climb() {
    if (m_text.size() > m_floor) {
      const std::size_t slash = m_text.rfind('/');
      m_text.resize(slash == std::string::npos ? 0 : std::max(slash, m_floor));
    } else if (!m_absolute) {
      m_text += m_text.empty() ? ".." : "/..";
      m_floor = m_text.size();
    }
  }

  void fixBase() { m_floor = m_text.size(); }

  std::string take() {
    if (m_text.empty()) return m_absolute ? "/" : ".";
    return std::move(m_text);
  }

 private:
  std::string m_text;
  bool m_absolute;
  std::size_t m_floor;  // length of what `..` leaves alone
};

// The text up to the next separator is cut off `rest`, with the separators behind it; `closed`
// tells whether there was one.
std::wstring_view cutComponent(std::wstring_view& rest, bool& closed) {
  const auto end = std::ranges::find_if(rest, IsSeparator);
  const std::wstring_view component = rest.substr(0, end - rest.begin());
  const auto next = std::find_if_not(end, rest.end(), IsSeparator);
  closed = end != rest.end();
  rest.remove_prefix(next - rest.begin());
  return component;
}

// The last component loses all closing dots and blanks, an inner one a single dot.
std::wstring_view trimmed(std::wstring_view component, bool closed) {
  if (!closed) return component.substr(0, component.find_last_not_of(L". ") + 1);
  if (component.ends_with(L'.') && !component.ends_with(L"..")) component.remove_suffix(1);
  return component;
}

bool appendComponents(std::wstring_view rest, bool verbatim, NativeName& name) {
  while (!rest.empty()) {
    bool closed = false;
    std::wstring_view component = cutComponent(rest, closed);
    if (!verbatim) {
      if (component == L"..") name.climb();
      if (component == L"." || component == L"..") continue;
      component = trimmed(component, closed);
    }
    if (!component.empty() && !name.append(component)) return false;
  }
  return true;
}

bool fail(DWORD code) {
  SetLastError(code);
  return false;
}

bool finish(NativeName& name, std::wstring_view rest, bool verbatim, std::string& native) {
  if (!appendComponents(rest, verbatim, name)) return fail(ERROR_INVALID_NAME);
  native = name.take();
  return true;
}

// `rest` is what follows the two separators, or `\\?\UNC\`.
bool shareToNative(std::wstring_view rest, bool verbatim, std::string& native) {
  bool closed = false;
  const std::optional<std::string> root = rootOfShare(cutComponent(rest, closed));
  if (!root) return fail(ERROR_BAD_NETPATH);
  NativeName name(root);
  const std::wstring_view share = cutComponent(rest, closed);
  if (!share.empty() && !name.append(share)) return fail(ERROR_INVALID_NAME);
  name.fixBase();
  return finish(name, rest, verbatim, native);
}

// `path` begins with a letter and a colon.
bool driveToNative(std::wstring_view path, bool verbatim, std::string& native) {
  std::optional<std::string> root = rootOfDrive(path[0]);
  if (!root) return fail(ERROR_PATH_NOT_FOUND);
  path.remove_prefix(2);
  const bool at_root = verbatim || (!path.empty() && IsSeparator(path[0]));
  if (!at_root && currentFolderLiesBelow(*root)) root.reset();
  NativeName name(root);
  return finish(name, path, verbatim, native);
}

bool hasDrive(std::wstring_view path) {
  return path.size() >= 2 && path[1] == L':' && driveIndex(path[0]);
}

bool beginsWithTwoSeparators(std::wstring_view path) {
  return path.size() >= 2 && IsSeparator(path[0]) && IsSeparator(path[1]);
}

bool isVerbatim(std::wstring_view path) {
  return path.size() >= 4 && beginsWithTwoSeparators(path) && path[2] == L'?' &&
         IsSeparator(path[3]);
}

// `path` is what follows `\\?\`.
bool verbatimToNative(std::wstring_view path, std::string& native) {
  if (hasDrive(path)) return driveToNative(path, true, native);
  if (path.size() < 4 || asciiLower(path.substr(0, 3)) != L"unc" || !IsSeparator(path[3])) {
    return fail(ERROR_PATH_NOT_FOUND);
  }
  return shareToNative(path.substr(4), true, native);
}

// --- names that are refused --------------------------------------------------------------------

bool isDeviceName(std::string_view name) {
  std::string stem(name.substr(0, name.find('.')));
  stem.resize(stem.find_last_not_of(' ') + 1);
  for (char& c : stem) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - ('a' - 'A'));
  }
  constexpr std::array<std::string_view, 4> plain = {"CON", "PRN", "AUX", "NUL"};
  if (std::ranges::find(plain, stem) != plain.end()) return true;
  const bool numbered = stem.size() == 4 && stem[3] >= '1' && stem[3] <= '9';
  return numbered && (stem.starts_with("COM") || stem.starts_with("LPT"));
}

bool nativeNamesAreWanted() {
  const char* wanted = std::getenv("QEL_NATIVE_NAMES");
  return wanted && std::string_view(wanted) == "1";
}

// --- from native -------------------------------------------------------------------------------

constexpr bool mustBeCarriedInName(char32_t c) {
  return isRefused(c) || c == U'\\';
}

void appendWideComponent(std::string_view component, std::wstring& out) {
  const bool closes = component.ends_with('.') || component.ends_with(' ');
  if (!closes || IsDots(component)) return appendWide(component, mustBeCarriedInName, out);
  appendWide(component.substr(0, component.size() - 1), mustBeCarriedInName, out);
  out += carry(component.back());
}

void appendWidePath(std::string_view native, std::wstring& out) {
  while (true) {
    const std::size_t slash = native.find('/');
    appendWideComponent(native.substr(0, slash), out);
    if (slash == std::string_view::npos) return;
    out += L'\\';
    native.remove_prefix(slash + 1);
  }
}

// The drive whose root is nearest above `native`, and the length of that root; no drive: 0 and 0.
std::pair<wchar_t, std::size_t> nearestDrive(std::string_view native) {
  std::pair<wchar_t, std::size_t> nearest{0, 0};
  Roots& all = roots();
  const std::shared_lock guard(all.lock);
  for (std::size_t i = 0; i < all.drives.size(); ++i) {
    const std::optional<std::string>& root = all.drives[i];
    if (!root || !liesBelow(native, *root)) continue;
    if (nearest.first == 0 || root->size() > nearest.second) {
      nearest = {static_cast<wchar_t>(L'A' + i), root->size()};
    }
  }
  return nearest;
}

}  // namespace

bool ToNative(std::wstring_view path, std::string& native) {
  if (path.empty()) return fail(ERROR_PATH_NOT_FOUND);
  if (isVerbatim(path)) return verbatimToNative(path.substr(4), native);
  if (beginsWithTwoSeparators(path)) return shareToNative(path.substr(2), false, native);
  if (hasDrive(path)) return driveToNative(path, false, native);
  NativeName name(IsSeparator(path[0]) ? std::optional<std::string>("") : std::nullopt);
  return finish(name, path, false, native);
}

bool ToNativeForCreation(std::wstring_view path, std::string& native) {
  std::string text;
  if (!ToNative(path, text)) return false;
  if (IsRefusedForCreation(text)) return fail(ERROR_INVALID_NAME);
  native = std::move(text);
  return true;
}

std::wstring FromNative(std::string_view native) {
  if (IsPlainName(native)) return {native.begin(), native.end()};
  std::wstring path;
  path.reserve(native.size());
  if (!native.starts_with('/')) {
    appendWidePath(native, path);
    return path;
  }
  const std::string normal = std::filesystem::path(native).lexically_normal();
  const auto [drive, root_length] = nearestDrive(normal);
  if (drive != 0) path = {drive, L':'};
  if (normal.size() == root_length) path += L'\\';
  appendWidePath(std::string_view(normal).substr(root_length), path);
  return path;
}

void SetDriveRoot(wchar_t drive, std::string_view native_root) {
  const std::optional<std::size_t> index = driveIndex(drive);
  if (!index) return;
  std::optional<std::string> root;
  if (!native_root.empty()) root = rootText(native_root);
  Roots& all = roots();
  const std::unique_lock guard(all.lock);
  all.drives[*index] = std::move(root);
}

void SetShareRoot(std::wstring_view server, std::string_view native_root) {
  const std::string root = native_root.empty() ? "" : rootText(native_root);
  Roots& all = roots();
  const std::unique_lock guard(all.lock);
  if (native_root.empty()) {
    all.shares.erase(asciiLower(server));
  } else {
    all.shares[asciiLower(server)] = root;
  }
}

bool IsAbsolute(std::wstring_view path) {
  if (hasDrive(path)) return path.size() > 2 && IsSeparator(path[2]);
  return !path.empty() && IsSeparator(path[0]);
}

bool IsPlainName(std::string_view name) {
  static constexpr std::array<bool, 256> plain = [] {
    std::array<bool, 256> table{};
    for (char32_t c = 0; c < 0x80; ++c) table[c] = !mustBeCarriedInName(c) && c != U'/';
    return table;
  }();
  const auto is_plain = [](char c) { return plain[static_cast<unsigned char>(c)]; };
  return std::ranges::all_of(name, is_plain) && !name.ends_with('.') && !name.ends_with(' ');
}

std::string ParentOf(std::string_view native) {
  native = native.substr(0, native.find_last_not_of('/') + 1);
  const std::size_t slash = native.rfind('/');
  if (slash == std::string_view::npos) return native.empty() ? "/" : ".";
  return std::string(native.substr(0, std::max<std::size_t>(slash, 1)));
}

std::string NameOf(std::string_view native) {
  native = native.substr(0, native.find_last_not_of('/') + 1);
  return std::string(native.substr(native.rfind('/') + 1));
}

bool IsRefusedForCreation(const std::string& native) {
  if (!isDeviceName(NameOf(native)) || nativeNamesAreWanted()) return false;
  const LastErrorKeeper keeper;
  struct stat status {};
  return Calls().lstat(native.c_str(), &status) != 0 && errno == ENOENT;
}

std::wstring WideText(std::string_view native) {
  std::wstring text;
  appendWide(
      native, [](char32_t) { return false; }, text);
  return text;
}

std::string NativeText(std::wstring_view text) {
  std::string native;
  for (std::size_t at = 0; at < text.size();) appendNative(takeCharacter(text, at), native);
  return native;
}

DWORD HandOut(std::wstring_view text, wchar_t* buffer, DWORD size) {
  const auto length = static_cast<DWORD>(text.size());
  if (length >= size) return length + 1;
  *std::copy(text.begin(), text.end(), buffer) = L'\0';
  return length;
}

}  // namespace qel::sys
