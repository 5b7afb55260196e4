#include "qelbase/checks/rc4.h"

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

// The generator. The entry that the next step begins with is read before this step's exchange is
// written, and put right if the exchange was its own: the processor then need not wait for stores.
struct Generator {
  std::uint8_t* state;
  std::uint32_t x;  // of the step to come, below 256 like all here
  std::uint32_t y;
  std::uint32_t at_x;

  static constexpr std::uint32_t Cut(std::uint32_t value) { return value & 0xFF; }

  std::uint32_t Step() {
    const std::uint32_t a = at_x;
    y = Cut(y + a);
    const std::uint32_t next = Cut(x + 1);
    const std::uint32_t b = state[y];
    const std::uint32_t at_next = state[next];
    state[y] = static_cast<std::uint8_t>(a);
    state[x] = static_cast<std::uint8_t>(b);
    at_x = next == y ? a : at_next;
    x = next;
    return state[Cut(a + b)];
  }
};

}  // namespace

void rc4(unsigned char* data, std::uint64_t length, rc4_key* key) {
  const std::uint32_t first = Generator::Cut(key->x + 1u);
  Generator generator{key->state, first, key->y, key->state[first]};
  for (; length >= 8; data += 8, length -= 8) {
    std::uint64_t stream = 0;
#pragma GCC unroll 8
    for (int i = 0; i < 8; ++i) stream |= std::uint64_t{generator.Step()} << (8 * i);
    qel::checks::StoreLittle64(data, qel::checks::LoadLittle64(data) ^ stream);
  }
  for (; length != 0; --length) *data++ ^= static_cast<std::uint8_t>(generator.Step());
  key->x = static_cast<std::uint8_t>(generator.x - 1);
  key->y = static_cast<std::uint8_t>(generator.y);
}
