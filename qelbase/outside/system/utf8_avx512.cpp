// UTF-8 with the byte permutations of AVX-512, after Clausecker and Lemire, "Transcoding Unicode
// Characters with AVX-512 Instructions" (2022).
#include "qelbase/outside/system/utf8_internal.h"

#if defined(__x86_64__)

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuninitialized"
#ifndef __clang__  // g++ 12 takes the undefined registers of its own header for a fault
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#include <immintrin.h>

#include <bit>
#include <cstdint>

#define QEL_AVX512 __attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi,avx512vbmi2")))

namespace qel::sys {

namespace {

constexpr std::size_t kStep = 64;
constexpr std::size_t kLanes = 16;

// Of a character, by the upper four bits of its first byte.
struct Forms {
  alignas(64) std::uint32_t bits[16];   // of it, in all four bytes
  alignas(64) std::uint32_t shift[16];  // that takes those of the bytes behind it out again
};
constexpr Forms kForms = {
    {0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0, 0, 0, 0, 0x3F1F, 0x3F1F, 0x3F3F0F,
     0x3F3F3F07},
    {18, 18, 18, 18, 18, 18, 18, 18, 18, 18, 18, 18, 12, 12, 6, 0},
};

struct Bytes {
  alignas(64) std::uint8_t values[64];
};
constexpr Bytes kIdentity = [] {
  Bytes bytes{};
  for (std::uint8_t i = 0; i < 64; ++i) bytes.values[i] = i;
  return bytes;
}();
// Each of 16 bytes four times: the first 16, the second, ...
struct Quarters {
  Bytes at[4];
};
constexpr Quarters kQuarters = [] {
  Quarters quarters{};
  for (int i = 0; i < 256; ++i)
    quarters.at[i / 64].values[i % 64] = static_cast<std::uint8_t>(i / 4);
  return quarters;
}();

QEL_AVX512 inline __m512i Load(const void* from) {
  return _mm512_loadu_si512(from);
}

// The characters that begin at `places` (each four times) of `text`.
QEL_AVX512 inline __m512i DecodeLanes(__m512i text, __m512i places) {
  const __m512i indexes = _mm512_add_epi8(places, _mm512_set1_epi32(0x03020100));
  const __m512i four = _mm512_permutexvar_epi8(indexes, text);
  const __m512i form = _mm512_srli_epi32(four, 4);
  const __m512i bits = _mm512_and_si512(four, _mm512_permutexvar_epi32(form, Load(kForms.bits)));
  // Six bits of each byte behind the first, put together.
  const __m512i pairs = _mm512_maddubs_epi16(bits, _mm512_set1_epi32(0x01400140));
  const __m512i all = _mm512_madd_epi16(pairs, _mm512_set1_epi32(0x00011000));
  return _mm512_srlv_epi32(all, _mm512_permutexvar_epi32(form, Load(kForms.shift)));
}

QEL_AVX512 inline __mmask64 AtLeast(__m512i bytes, int value) {
  return _mm512_cmpge_epu8_mask(bytes, _mm512_set1_epi8(static_cast<char>(value)));
}

QEL_AVX512 inline std::uint64_t Equal(__m512i bytes, int value) {
  return _mm512_cmpeq_epi8_mask(bytes, _mm512_set1_epi8(static_cast<char>(value)));
}

// Whether each first byte has its continuation bytes, and no others are there, and no character is
// too long, a surrogate, or above U+10FFFF. One that goes on behind the step is asked as far as it
// is in it.
QEL_AVX512 inline bool IsWellFormed(__m512i bytes, std::uint64_t firsts_of_many,
                                    std::uint64_t continuations) {
  const std::uint64_t two = AtLeast(bytes, 0xC2);
  const std::uint64_t three = AtLeast(bytes, 0xE0);
  const std::uint64_t four = AtLeast(bytes, 0xF0);
  if (two != firsts_of_many || (two << 1 | three << 2 | four << 3) != continuations) return false;
  if (three == 0) return true;
  const std::uint64_t e0 = Equal(bytes, 0xE0) << 1, ed = Equal(bytes, 0xED) << 1;
  if (four == 0 && (e0 | ed) == 0) return true;
  const std::uint64_t f0 = Equal(bytes, 0xF0) << 1, f4 = Equal(bytes, 0xF4) << 1;
  const std::uint64_t from_90 = AtLeast(bytes, 0x90), from_a0 = AtLeast(bytes, 0xA0);
  const std::uint64_t wrong = (e0 & ~from_a0) | (ed & from_a0) | (f0 & ~from_90) | (f4 & from_90);
  return (wrong | AtLeast(bytes, 0xF5)) == 0;
}

}  // namespace

bool HasAvx512Vbmi2() {
  static const bool has =
      __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl") &&
      __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("avx512vbmi2");
  return has;
}

QEL_AVX512 std::size_t DecodeUtf8Avx512(std::string_view text, wchar_t* out, std::size_t room,
                                        std::size_t& length) {
  const char* at = text.data();
  const char* const end = at + text.size();
  std::size_t made = 0;
  while (static_cast<std::size_t>(end - at) >= kStep && room - made >= kStep) {
    const __m512i bytes = Load(at);
    const std::uint64_t high = _mm512_movepi8_mask(bytes);
    if (high == 0) {
      for (std::size_t i = 0; out && i < kStep; i += kLanes) {
        const __m128i part = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at + i));
        _mm512_storeu_si512(out + made + i, _mm512_cvtepu8_epi32(part));
      }
      at += kStep;
      made += kStep;
      continue;
    }
    const std::uint64_t firsts_of_many = AtLeast(bytes, 0xC0);
    const std::uint64_t continuations = high & ~firsts_of_many;
    if (!IsWellFormed(bytes, firsts_of_many, continuations)) break;
    // A character that begins in the last three bytes may go on behind them.
    constexpr int sure = 61;
    const std::uint64_t firsts = ~continuations;
    const std::uint64_t taken = firsts & ((std::uint64_t{1} << sure) - 1);
    const auto count = static_cast<std::size_t>(std::popcount(taken));
    const __m512i places = _mm512_maskz_compress_epi8(taken, Load(kIdentity.values));
    for (std::size_t i = 0; out && i < count; i += kLanes) {
      const __m512i lanes = _mm512_permutexvar_epi8(Load(kQuarters.at[i / kLanes].values), places);
      _mm512_storeu_si512(out + made + i, DecodeLanes(bytes, lanes));
    }
    at += sure + std::countr_zero(firsts >> sure | 8);
    made += count;
  }
  length = made;
  return static_cast<std::size_t>(at - text.data());
}

QEL_AVX512 std::size_t EncodeUtf8Avx512(std::wstring_view text, char* out, std::size_t room,
                                        std::size_t& length) {
  const wchar_t* at = text.data();
  const wchar_t* const end = at + text.size();
  // The bits from 18, 12, 6 and 0 on of each character.
  const __m512i parts = _mm512_set1_epi64(0x2026'2C32'0006'0C12);
  std::size_t made = 0;
  while (static_cast<std::size_t>(end - at) >= kLanes && room - made >= kStep) {
    const __m512i c = Load(at);
    const __mmask16 two = _mm512_cmpge_epu32_mask(c, _mm512_set1_epi32(0x80));
    if (two == 0) {
      const __m128i bytes = _mm512_cvtepi32_epi8(c);
      if (out) _mm_storeu_si128(reinterpret_cast<__m128i*>(out + made), bytes);
      at += kLanes;
      made += kLanes;
      continue;
    }
    const __m512i from_surrogates = _mm512_sub_epi32(c, _mm512_set1_epi32(0xD800));
    __mmask16 valid = _mm512_cmpge_epu32_mask(from_surrogates, _mm512_set1_epi32(0x800));
    valid = _mm512_mask_cmple_epu32_mask(valid, c, _mm512_set1_epi32(0x10FFFF));
    if (valid != 0xFFFF) break;
    const __mmask16 three = _mm512_cmpge_epu32_mask(c, _mm512_set1_epi32(0x800));
    const __mmask16 four = _mm512_cmpge_epu32_mask(c, _mm512_set1_epi32(0x10000));
    // The bytes of each character stand at the end of its lane; the others are 0.
    __m512i marks = _mm512_maskz_set1_epi32(two, static_cast<int>(0x80C00000));
    marks = _mm512_mask_set1_epi32(marks, three, static_cast<int>(0x8080E000));
    marks = _mm512_mask_set1_epi32(marks, four, static_cast<int>(0x808080F0));
    __m512i bytes =
        _mm512_and_si512(_mm512_multishift_epi64_epi8(parts, c), _mm512_set1_epi32(0x3F3F3F07));
    bytes = _mm512_or_si512(bytes, marks);
    bytes = _mm512_mask_slli_epi32(bytes, static_cast<__mmask16>(~two), c, 24);
    const __m512i last = _mm512_set1_epi32(static_cast<int>(0xFF000000));
    const __mmask64 used =
        _mm512_test_epi8_mask(_mm512_or_si512(bytes, last), _mm512_set1_epi8(-1));
    if (out) _mm512_storeu_si512(out + made, _mm512_maskz_compress_epi8(used, bytes));
    at += kLanes;
    made += static_cast<std::size_t>(std::popcount(static_cast<std::uint64_t>(used)));
  }
  length = made;
  return static_cast<std::size_t>(at - text.data());
}

}  // namespace qel::sys

#pragma GCC diagnostic pop

#else

namespace qel::sys {

bool HasAvx512Vbmi2() {
  return false;
}
std::size_t DecodeUtf8Avx512(std::string_view, wchar_t*, std::size_t, std::size_t& length) {
  return length = 0;
}
std::size_t EncodeUtf8Avx512(std::wstring_view, char*, std::size_t, std::size_t& length) {
  return length = 0;
}

}  // namespace qel::sys

#endif
