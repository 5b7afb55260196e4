#include "qelbase/checks/rc4.h"

#include <string.h>

#include <algorithm>
#include <iterator>
#include <numeric>
#include <utility>

#include "qelbase/checks/bytes_internal.h"

void prepare_key(const unsigned char* key, std::uint16_t key_length, rc4_key* out) {
  std::iota(std::begin(out->state), std::end(out->state), std::uint8_t{0});
  out->x = out->y = 0;
  std::uint8_t j = 0;
  for (unsigned i = 0; i < 256; ++i) {
    j = static_cast<std::uint8_t>(j + out->state[i] + key[i % key_length]);
    std::swap(out->state[i], out->state[j]);
  }
}

namespace {

constexpr std::uint32_t kGroup = 8;  // steps; 256 is a multiple of it

constexpr std::uint8_t Cut(std::uint32_t value) {
  return static_cast<std::uint8_t>(value);
}

// Runs the generator over entries of one width. Indexes are those of the step to come.
template <typename Entry>
void Run(Entry* state, rc4_key& key, std::uint8_t* data, std::uint64_t length) {
  std::uint32_t x = Cut(key.x + 1u);
  std::uint32_t y = key.y;
  const auto step = [&] {
    const std::uint32_t a = state[x];
    y = Cut(y + a);
    const std::uint32_t b = state[y];
    state[y] = static_cast<Entry>(a);
    state[x] = static_cast<Entry>(b);
    x = Cut(x + 1);
    return Cut(state[Cut(a + b)]);
  };
  for (; length != 0 && x % kGroup != 0; --length) *data++ ^= step();

  // The entry that a step begins with is read before the exchange of the step in front is written,
  // and again if that exchange was its own: the processor then need not wait for stores.
  std::uint32_t a = state[x];
  for (; length >= kGroup; data += kGroup, length -= kGroup) {
    Entry* const group = state + x;
    const std::uint32_t after = Cut(x + kGroup);
    std::uint64_t stream = 0;
#pragma GCC unroll 8
    for (std::uint32_t i = 0; i < kGroup; ++i) {
      const bool last = i + 1 == kGroup;
      const std::uint32_t next = last ? after : x + i + 1;
      y = Cut(y + a);
      const std::uint32_t b = state[y];
      std::uint32_t at_next = last ? state[after] : group[i + 1];
      __asm__("" : "+r"(at_next));  // as 32 bits: g++ would widen it again on the way of the chain
      state[y] = static_cast<Entry>(a);
      group[i] = static_cast<Entry>(b);
      stream |= std::uint64_t{Cut(state[Cut(a + b)])} << (8 * i);
      a = at_next;
      if (next == y) [[unlikely]]
        a = state[next];
    }
    x = after;
    qel::checks::StoreLittle64(data, qel::checks::LoadLittle64(data) ^ stream);
  }
  for (; length != 0; --length) *data++ ^= step();
  key.x = Cut(x - 1);
  key.y = Cut(y);
}

}  // namespace

void rc4(unsigned char* data, std::uint64_t length, rc4_key* key) {
  // Entries of whole words are faster to work with; they are wiped behind it.
  constexpr std::uint64_t kWorthWidening = 512;
  if (length < kWorthWidening) return Run(key->state, *key, data, length);
  std::uint32_t wide[256];
  std::copy(std::begin(key->state), std::end(key->state), wide);
  Run(wide, *key, data, length);
  std::transform(wide, std::end(wide), key->state, Cut);
  explicit_bzero(wide, sizeof wide);
}
