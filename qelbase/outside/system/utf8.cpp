// UTF-8 from and to wide text: in the steps of utf8_internal.h, if the processor has them; else
// plain characters eight at a time, the others one by one. Well-formed is what table 3-7 of the
// Unicode Standard has.
#include <algorithm>
#include <bit>
#include <cstring>

#include "qelbase/outside/system/code_pages_internal.h"
#include "qelbase/outside/system/utf8_internal.h"

namespace qel::sys {

namespace {

constexpr int run_length = 8;
constexpr std::uint64_t high_bits = 0x8080'8080'8080'8080;
static_assert(std::endian::native == std::endian::little, "the lowest bit is the first byte's");

constexpr char32_t replacement = 0xFFFD;

std::uint64_t loadRun(const char* text) {
  std::uint64_t run;
  std::memcpy(&run, text, sizeof run);
  return run;
}

char32_t byteAt(const char* text, int i) {
  return static_cast<unsigned char>(text[i]);
}

// The low bits of a continuation byte, else something above 0x3F.
char32_t tailBits(const char* text, int i) {
  return byteAt(text, i) ^ 0x80;
}

// The well-formed character of 2 to 4 bytes at `at`, which moves behind it; no_character and `at`
// left alone for anything else.
inline char32_t takeWellFormed(const char*& at, const char* end) {
  const char32_t lead = byteAt(at, 0);
  const std::ptrdiff_t left = end - at;
  if (lead < 0xE0) {
    if (lead < 0xC2 || left < 2 || tailBits(at, 1) > 0x3F) return no_character;
    const char32_t c = (lead & 0x1F) << 6 | tailBits(at, 1);
    at += 2;
    return c;
  }
  if (lead < 0xF0) {
    if (left < 3 || (tailBits(at, 1) | tailBits(at, 2)) > 0x3F) return no_character;
    const char32_t c = (lead & 0xF) << 12 | tailBits(at, 1) << 6 | tailBits(at, 2);
    if (c < 0x800 || (c >= 0xD800 && c <= 0xDFFF)) return no_character;
    at += 3;
    return c;
  }
  if (lead > 0xF4 || left < 4) return no_character;
  if ((tailBits(at, 1) | tailBits(at, 2) | tailBits(at, 3)) > 0x3F) return no_character;
  const char32_t c =
      (lead & 7) << 18 | tailBits(at, 1) << 12 | tailBits(at, 2) << 6 | tailBits(at, 3);
  if (c < 0x10000 || c > 0x10FFFF) return no_character;
  at += 4;
  return c;
}

// As much as goes in long steps is followed by this much of what did not.
constexpr std::ptrdiff_t stretch = 64;

// From `at` on, up to or a little behind `stop`; `stores` false only counts. Gives where it ended.
template <bool stores>
const char* decode(const char* at, const char* stop, const char* end, wchar_t* out,
                   std::size_t room, Converted& done) {
  while (at < stop) {
    if (end - at >= run_length && room - done.length >= run_length) {
      const std::uint64_t marks = loadRun(at) & high_bits;
      if constexpr (stores) {  // all of them: what is too much is written over
        for (int i = 0; i < run_length; ++i) {
          out[done.length + i] = static_cast<wchar_t>(byteAt(at, i));
        }
      }
      const int plain = marks == 0 ? run_length : std::countr_zero(marks) / 8;
      at += plain;
      done.length += static_cast<std::size_t>(plain);
      if (marks == 0) continue;
    }
    do {
      if (done.length == room) return done.fits = false, at;
      char32_t c = byteAt(at, 0);
      if (c < 0x80) {
        ++at;
      } else if ((c = takeWellFormed(at, end)) == no_character) {
        std::string_view rest(at, static_cast<std::size_t>(end - at));
        TakeUtf8(rest);
        at = end - rest.size();
        c = replacement;
        done.ill_formed = true;
      }
      if constexpr (stores) out[done.length] = static_cast<wchar_t>(c);
      ++done.length;
    } while (at < end && byteAt(at, 0) >= 0x80);
  }
  return at;
}

template <bool stores>
Converted decodeAll(std::string_view text, wchar_t* out, std::size_t room, bool in_steps) {
  const char* at = text.data();
  const char* const end = at + text.size();
  Converted done;
  while (at < end && done.fits) {
    std::size_t made = 0;
    if (in_steps) {
      at += DecodeUtf8Avx512({at, static_cast<std::size_t>(end - at)},
                             stores ? out + done.length : nullptr, room - done.length, made);
      done.length += made;
    }
    const char* const stop = in_steps && end - at > stretch ? at + stretch : end;
    at = decode<stores>(at, stop, end, out, room, done);
  }
  return done;
}

Converted decodeAll(std::string_view text, wchar_t* out, std::size_t room, bool in_steps) {
  return out ? decodeAll<true>(text, out, room, in_steps)
             : decodeAll<false>(text, nullptr, SIZE_MAX, in_steps);
}

// The bytes of `c`, from the front; their number.
inline std::size_t put(char32_t c, char (&bytes)[4]) {
  if (c < 0x80) {
    bytes[0] = static_cast<char>(c);
    return 1;
  }
  const auto tail = [c](int shift) { return static_cast<char>(0x80 | (c >> shift & 0x3F)); };
  if (c < 0x800) {
    bytes[0] = static_cast<char>(0xC0 | c >> 6);
    bytes[1] = tail(0);
    return 2;
  }
  if (c < 0x10000) {
    bytes[0] = static_cast<char>(0xE0 | c >> 12);
    bytes[1] = tail(6);
    bytes[2] = tail(0);
    return 3;
  }
  bytes[0] = static_cast<char>(0xF0 | c >> 18);
  bytes[1] = tail(12);
  bytes[2] = tail(6);
  bytes[3] = tail(0);
  return 4;
}

bool isPlainRun(const wchar_t* text) {
  std::uint32_t bits = 0;
  for (int i = 0; i < run_length; ++i) bits |= static_cast<std::uint32_t>(text[i]);
  return bits < 0x80;
}

template <bool stores>
const wchar_t* encode(const wchar_t* at, const wchar_t* end_of_stretch, const wchar_t* end,
                      const char* default_char, char* out, std::size_t room, Converted& done) {
  while (at < end_of_stretch) {
    if (end - at >= run_length && room - done.length >= run_length && isPlainRun(at)) {
      if constexpr (stores) {
        for (int i = 0; i < run_length; ++i) out[done.length + i] = static_cast<char>(at[i]);
      }
      at += run_length;
      done.length += run_length;
      continue;
    }
    for (const wchar_t* const stop = at + std::min<std::ptrdiff_t>(end - at, run_length);
         at < stop;) {
      auto c = static_cast<char32_t>(*at);
      char bytes[4];
      std::size_t length = 0;
      if (c < 0xD800) {
        ++at;
        length = put(c, bytes);
      } else {
        std::wstring_view rest(at, static_cast<std::size_t>(end - at));
        c = TakeWide(rest);
        at = end - rest.size();
        const bool is_character = c != no_character;
        done.ill_formed = done.ill_formed || !is_character;
        length = put(is_character ? c : replacement, bytes);
        if (!is_character && default_char) length = 1, bytes[0] = *default_char;
      }
      if (room - done.length < length) return done.fits = false, at;
      if constexpr (stores) std::memcpy(out + done.length, bytes, length);
      done.length += length;
    }
  }
  return at;
}

template <bool stores>
Converted encodeAll(std::wstring_view text, const char* default_char, char* out, std::size_t room,
                    bool in_steps) {
  const wchar_t* at = text.data();
  const wchar_t* const end = at + text.size();
  Converted done;
  while (at < end && done.fits) {
    std::size_t made = 0;
    if (in_steps) {
      at += EncodeUtf8Avx512({at, static_cast<std::size_t>(end - at)},
                             stores ? out + done.length : nullptr, room - done.length, made);
      done.length += made;
    }
    const wchar_t* const stop = in_steps && end - at > stretch ? at + stretch : end;
    at = encode<stores>(at, stop, end, default_char, out, room, done);
  }
  return done;
}

Converted encodeAll(std::wstring_view text, const char* default_char, char* out, std::size_t room,
                    bool in_steps) {
  return out ? encodeAll<true>(text, default_char, out, room, in_steps)
             : encodeAll<false>(text, default_char, nullptr, SIZE_MAX, in_steps);
}

}  // namespace

Converted DecodeUtf8(std::string_view text, wchar_t* out, std::size_t room) {
  return decodeAll(text, out, room, HasAvx512Vbmi2());
}
Converted DecodeUtf8Portable(std::string_view text, wchar_t* out, std::size_t room) {
  return decodeAll(text, out, room, false);
}

Converted EncodeUtf8(std::wstring_view text, const char* default_char, char* out,
                     std::size_t room) {
  return encodeAll(text, default_char, out, room, HasAvx512Vbmi2());
}
Converted EncodeUtf8Portable(std::wstring_view text, const char* default_char, char* out,
                             std::size_t room) {
  return encodeAll(text, default_char, out, room, false);
}

}  // namespace qel::sys
