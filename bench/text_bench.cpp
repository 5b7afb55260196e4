// Conversion between UTF-8 and wide text, with validation, and the maps that ignore case.
#include <benchmark/benchmark.h>
#include <iconv.h>

#include <algorithm>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "qelbase/outside/system/text.h"
#include "qelbase/text/CMapStringI.h"

#ifdef HAVE_ABSL
#include <absl/container/flat_hash_map.h>
#endif
#ifdef HAVE_BOOST_LOCALE
#include <boost/locale/encoding_utf.hpp>
#endif
#ifdef HAVE_ICU
#include <unicode/ustring.h>
#endif

namespace {

// --- conversion --------------------------------------------------------------------------------

constexpr std::size_t kTextSize = 1 << 20;  // bytes

struct Sample {
  const char* name;
  std::string piece;
};
const Sample kSamples[] = {
    {"ascii", "The quick brown fox jumps over the lazy dog, 1234567890 times. "},
    {"mixed",
     "Gr\xC3\xB6\xC3\x9F"
     "e 12 \xE2\x82\xAC, na\xC3\xAFve caf\xC3\xA9; the rest is plain. "},
    {"cjk",
     "\xE8\xA8\xAD\xE5\xAE\x9A\xE3\x81\x95\xE3\x82\x8C\xE3\x81\x9F\xE5\x80\xA4 \xF0\x9F\x98\x80"},
};

struct Texts {
  std::string narrow;
  std::wstring wide;
  explicit Texts(const Sample& sample) {
    while (narrow.size() < kTextSize) narrow += sample.piece;
    wide = qel::sys::Widen(narrow, qel::sys::CP_UTF8);
  }
};

void count(benchmark::State& state, const Texts& texts) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * texts.narrow.size()));
}

void widenOurs(benchmark::State& state, const Sample& sample) {
  const Texts texts(sample);
  std::wstring out(texts.wide.size(), L'\0');
  for (auto _ : state) {
    const int got = qel::sys::MultiByteToWideChar(
        qel::sys::CP_UTF8, qel::sys::MB_ERR_INVALID_CHARS, texts.narrow.data(),
        static_cast<int>(texts.narrow.size()), out.data(), static_cast<int>(out.size()));
    if (got != static_cast<int>(out.size())) state.SkipWithError("wrong");
  }
  count(state, texts);
}

void narrowOurs(benchmark::State& state, const Sample& sample) {
  const Texts texts(sample);
  std::string out(texts.narrow.size(), '\0');
  for (auto _ : state) {
    const int got =
        qel::sys::WideCharToMultiByte(qel::sys::CP_UTF8, qel::sys::WC_ERR_INVALID_CHARS,
                                      texts.wide.data(), static_cast<int>(texts.wide.size()),
                                      out.data(), static_cast<int>(out.size()), nullptr, nullptr);
    if (got != static_cast<int>(out.size())) state.SkipWithError("wrong");
  }
  count(state, texts);
}

template <typename From, typename To>
void convertIconv(benchmark::State& state, const char* to, const char* from, const From& source,
                  To out) {
  const iconv_t handle = iconv_open(to, from);
  for (auto _ : state) {
    char* in = reinterpret_cast<char*>(const_cast<typename From::value_type*>(source.data()));
    char* at = reinterpret_cast<char*>(out.data());
    std::size_t in_left = source.size() * sizeof source[0];
    std::size_t out_left = out.size() * sizeof out[0];
    if (iconv(handle, &in, &in_left, &at, &out_left) != 0) state.SkipWithError("wrong");
  }
  iconv_close(handle);
}

void widenIconv(benchmark::State& state, const Sample& sample) {
  const Texts texts(sample);
  convertIconv(state, "WCHAR_T", "UTF-8", texts.narrow, std::wstring(texts.wide.size(), L'\0'));
  count(state, texts);
}
void narrowIconv(benchmark::State& state, const Sample& sample) {
  const Texts texts(sample);
  convertIconv(state, "UTF-8", "WCHAR_T", texts.wide, std::string(texts.narrow.size(), '\0'));
  count(state, texts);
}

// What it takes to write as many bytes as the conversion does.
void fill(benchmark::State& state, std::size_t bytes) {
  std::string out(bytes, '\0');
  for (auto _ : state) {
    std::fill(out.begin(), out.end(), 'x');
    benchmark::ClobberMemory();
  }
}
void widenLimit(benchmark::State& state, const Sample& sample) {
  const Texts texts(sample);
  fill(state, texts.wide.size() * sizeof(wchar_t));
  count(state, texts);
}
// And to read as many, for which the bytes are copied.
void narrowLimit(benchmark::State& state, const Sample& sample) {
  const Texts texts(sample);
  std::wstring out = texts.wide;
  for (auto _ : state) {
    std::copy(texts.wide.begin(), texts.wide.end(), out.begin());
    benchmark::ClobberMemory();
  }
  count(state, texts);
}

#ifdef HAVE_BOOST_LOCALE
void widenBoost(benchmark::State& state, const Sample& sample) {
  const Texts texts(sample);
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        boost::locale::conv::utf_to_utf<wchar_t>(texts.narrow, boost::locale::conv::stop));
  }
  count(state, texts);
}
void narrowBoost(benchmark::State& state, const Sample& sample) {
  const Texts texts(sample);
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        boost::locale::conv::utf_to_utf<char>(texts.wide, boost::locale::conv::stop));
  }
  count(state, texts);
}
#endif

#ifdef HAVE_ICU
// Its text has 16-bit units, which lie between.
void widenIcu(benchmark::State& state, const Sample& sample) {
  const Texts texts(sample);
  std::u16string units(texts.narrow.size(), u'\0');
  std::wstring out(texts.wide.size(), L'\0');
  for (auto _ : state) {
    UErrorCode error = U_ZERO_ERROR;
    std::int32_t length = 0;
    u_strFromUTF8(units.data(), static_cast<std::int32_t>(units.size()), &length,
                  texts.narrow.data(), static_cast<std::int32_t>(texts.narrow.size()), &error);
    u_strToWCS(out.data(), static_cast<std::int32_t>(out.size()), nullptr, units.data(), length,
               &error);
    if (U_FAILURE(error)) state.SkipWithError("wrong");
  }
  count(state, texts);
}
void narrowIcu(benchmark::State& state, const Sample& sample) {
  const Texts texts(sample);
  std::u16string units(texts.narrow.size(), u'\0');
  std::string out(texts.narrow.size(), '\0');
  for (auto _ : state) {
    UErrorCode error = U_ZERO_ERROR;
    std::int32_t length = 0;
    u_strFromWCS(units.data(), static_cast<std::int32_t>(units.size()), &length, texts.wide.data(),
                 static_cast<std::int32_t>(texts.wide.size()), &error);
    u_strToUTF8(out.data(), static_cast<std::int32_t>(out.size()), nullptr, units.data(), length,
                &error);
    if (U_FAILURE(error)) state.SkipWithError("wrong");
  }
  count(state, texts);
}
#endif

// --- maps --------------------------------------------------------------------------------------

enum class Ask { exact, other_case, missing };

struct Keys {
  std::vector<std::wstring> stored, asked;
  Keys(std::size_t size, Ask ask) {
    for (std::size_t i = 0; i < size; ++i) stored.push_back(L"Setting." + std::to_wstring(i));
    asked = stored;
    for (std::wstring& key : asked) {
      if (ask == Ask::other_case) key.replace(0, 7, L"sETTING");
      if (ask == Ask::missing) key[7] = L'-';
    }
    std::shuffle(asked.begin(), asked.end(), std::mt19937(1));  // NOLINT: the same in each run
  }
};

// Made once in a run: a million keys take longer than looking them up.
const Keys& keysOf(std::size_t size, Ask ask) {
  static std::map<std::pair<std::size_t, Ask>, Keys> kept;
  const auto key = std::pair(size, ask);
  const auto found = kept.find(key);
  return found != kept.end() ? found->second : kept.emplace(key, Keys(size, ask)).first->second;
}

template <typename Map>
Map& mapOf(std::size_t size) {
  static std::map<std::size_t, Map> kept;
  return kept[size];
}

// One lookup an iteration, round and round. The key is plain text for all.
template <typename Find>
void lookUp(benchmark::State& state, const Keys& keys, bool found, Find find) {
  std::size_t i = 0;
  for (auto _ : state) {
    if (find(keys.asked[i]) != found) state.SkipWithError("wrong");
    if (++i == keys.asked.size()) i = 0;
  }
}

void mapOurs(benchmark::State& state, Ask ask, std::size_t size) {
  const Keys& keys = keysOf(size, ask);
  auto& map = mapOf<CMapStringIToPtr>(size);
  if (map.IsEmpty()) {
    for (const std::wstring& key : keys.stored) map[key.c_str()] = &map;
  }
  lookUp(state, keys, ask != Ask::missing, [&](const std::wstring& key) {
    void* value = nullptr;
    return map.Lookup(key.c_str(), value);
  });
}

#ifdef HAVE_ABSL
struct PlainHash {
  using is_transparent = void;
  std::size_t operator()(std::wstring_view text) const {
    return absl::Hash<std::wstring_view>()(text);
  }
};
struct FoldedHash {
  using is_transparent = void;
  std::size_t operator()(std::wstring_view text) const {
    wchar_t folded[64];
    for (std::size_t i = 0; i < text.size(); ++i) {
      folded[i] = text[i] >= L'A' && text[i] <= L'Z' ? text[i] + 32 : text[i];
    }
    return absl::Hash<std::wstring_view>()({folded, text.size()});
  }
};
struct FoldedEqual {
  using is_transparent = void;
  bool operator()(std::wstring_view a, std::wstring_view b) const {
    const auto fold = [](wchar_t c) { return c >= L'A' && c <= L'Z' ? c + 32 : c; };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [&](wchar_t x, wchar_t y) { return fold(x) == fold(y); });
  }
};

template <typename Map>
void mapAbsl(benchmark::State& state, Ask ask, std::size_t size) {
  const Keys& keys = keysOf(size, ask);
  auto& map = mapOf<Map>(size);
  if (map.empty()) {
    for (const std::wstring& key : keys.stored) map[key] = &map;
  }
  lookUp(state, keys, ask != Ask::missing, [&](const std::wstring& key) {
    const auto found = map.find(std::wstring_view(key.c_str()));
    benchmark::DoNotOptimize(found);
    return found != map.end();
  });
}
using Plain = absl::flat_hash_map<std::wstring, void*, PlainHash, std::equal_to<>>;
using Folded = absl::flat_hash_map<std::wstring, void*, FoldedHash, FoldedEqual>;
#endif

template <typename... Arguments>
void add(const std::string& name, Arguments... arguments) {
  benchmark::RegisterBenchmark(name.c_str(), arguments...);
}

[[maybe_unused]] const bool kRegistered = [] {
  for (const Sample& sample : kSamples) {
    const std::string widen = std::string("to_wide_") + sample.name + "/";
    const std::string narrow = std::string("to_utf8_") + sample.name + "/";
    add(widen + "ours", widenOurs, sample);
    add(widen + "iconv", widenIconv, sample);
    add(narrow + "ours", narrowOurs, sample);
    add(narrow + "iconv", narrowIconv, sample);
    add(widen + "limit_memset", widenLimit, sample);
    add(narrow + "limit_memcpy", narrowLimit, sample);
#ifdef HAVE_BOOST_LOCALE
    add(widen + "Boost", widenBoost, sample);
    add(narrow + "Boost", narrowBoost, sample);
#endif
#ifdef HAVE_ICU
    add(widen + "ICU", widenIcu, sample);
    add(narrow + "ICU", narrowIcu, sample);
#endif
  }
  for (const std::size_t size : {10'000, 1'000'000}) {
    const std::string count = std::to_string(size);
    add("exact_" + count + "/ours", mapOurs, Ask::exact, size);
    add("other_case_" + count + "/ours", mapOurs, Ask::other_case, size);
    add("miss_" + count + "/ours", mapOurs, Ask::missing, size);
#ifdef HAVE_ABSL
    add("exact_" + count + "/Abseil", mapAbsl<Plain>, Ask::exact, size);
    add("other_case_" + count + "/Abseil", mapAbsl<Folded>, Ask::other_case, size);
    add("miss_" + count + "/Abseil", mapAbsl<Plain>, Ask::missing, size);
#endif
  }
  return true;
}();

}  // namespace
