// The portable form: sixteen bytes a step, by table.
#include "qelbase/checks/bytes_internal.h"
#include "qelbase/checks/crc_internal.h"
#include "qelbase/checks/processor_internal.h"

namespace qel::checks {

namespace {

// The bit order of the two classes. `Step` is the step over one byte, `Times` multiplies a
// remainder by x, and `First` is where the value meets the first bytes of a block.
struct Plain16 {
  using Value = std::uint16_t;
  using Table = std::array<Value, 256>;
  static constexpr bool kReversed = false;
  static constexpr Value kOne = 1;

  static Value Step(const Table& table, Value c, std::uint8_t b) {
    return static_cast<Value>(table[(c >> 8) ^ b] ^ (c << 8));
  }
  static Value Times(Value r, Value polynomial) {
    return static_cast<Value>((r << 1) ^ (r & 0x8000 ? polynomial : 0));
  }
  // The value as it meets the first bytes of a block.
  static std::uint64_t Meet(Value c) { return __builtin_bswap16(c); }
  static constexpr std::uint64_t Place(Value r) { return r; }
  static constexpr unsigned kLowPower = 0;  // of x, beyond the distance
  static constexpr unsigned kHighPower = 64;
};

struct Reversed32 {
  using Value = std::uint32_t;
  using Table = std::array<Value, 256>;
  static constexpr bool kReversed = true;
  static constexpr Value kOne = 0x80000000;

  static Value Step(const Table& table, Value c, std::uint8_t b) {
    return (c >> 8) ^ table[(c & 0xFF) ^ b];
  }
  static Value Times(Value r, Value polynomial) { return (r >> 1) ^ (r & 1 ? polynomial : 0); }
  static std::uint64_t Meet(Value c) { return c; }
  // Reversed operands: a product stands one bit off, and the low quadword holds the higher powers.
  static constexpr std::uint64_t Place(Value r) { return std::uint64_t{r} << 32; }
  static constexpr unsigned kLowPower = 63;
  static constexpr unsigned kHighPower = static_cast<unsigned>(-1);
};

template <typename Order>
CrcPlan<typename Order::Value> Plan(const typename Order::Table& table,
                                    typename Order::Value polynomial) {
  CrcPlan<typename Order::Value> plan{};
  plan.slices[0] = table;
  for (std::size_t n = 1; n < plan.slices.size(); ++n) {
    for (std::size_t b = 0; b < 256; ++b) {
      plan.slices[n][b] = Order::Step(table, plan.slices[n - 1][b], 0);
    }
  }
  typename Order::Value remainder = Order::kOne;
  for (unsigned power = 0; power <= kFoldDistances.back() + 64; ++power) {
    for (std::size_t i = 0; i < kFoldDistances.size(); ++i) {
      if (power == kFoldDistances[i] + Order::kLowPower)
        plan.folds[i].low = Order::Place(remainder);
      if (power == kFoldDistances[i] + Order::kHighPower) {
        plan.folds[i].high = Order::Place(remainder);
      }
    }
    remainder = Order::Times(remainder, polynomial);
  }
  return plan;
}

// What eight bytes, the first of them the lowest of `bytes`, give with `Behind` more behind them.
template <typename Order, std::size_t Behind>
typename Order::Value EightBytes(const CrcPlan<typename Order::Value>& plan, std::uint64_t bytes) {
  typename Order::Value result = 0;
  for (std::size_t i = 0; i < 8; ++i) {
    result ^= plan.slices[Behind + 7 - i][static_cast<std::uint8_t>(bytes >> (8 * i))];
  }
  return result;
}

template <typename Order>
typename Order::Value UpdateBySlices(const CrcPlan<typename Order::Value>& plan,
                                     typename Order::Value c, const std::uint8_t* data,
                                     std::size_t size) {
  constexpr std::size_t kSlices = CrcPlan<typename Order::Value>::kSlices;
  for (; size >= kSlices; data += kSlices, size -= kSlices) {
    const std::uint64_t met = Order::Meet(c);
    c = 0;
    for (std::size_t i = 0; i < kSlices; ++i) {
      const auto change = i < sizeof c ? static_cast<std::uint8_t>(met >> (8 * i)) : 0;
      c ^= plan.slices[kSlices - 1 - i][data[i] ^ change];
    }
  }
  if (size >= 8) {
    c = EightBytes<Order, 0>(plan, LoadLittle64(data) ^ Order::Meet(c));
    data += 8;
    size -= 8;
  }
  for (; size != 0; --size) c = Order::Step(plan.slices[0], c, *data++);
  return c;
}

#if defined(__x86_64__)

template <typename Order>
typename Order::Value UpdateByFolding(const CrcPlan<typename Order::Value>& plan,
                                      typename Order::Value c, const std::uint8_t* data,
                                      std::size_t size) {
  const std::size_t whole = size & ~std::size_t{15};
  const auto fold = Has(kVpclmul | kAvx512) ? &FoldVpclmul512
                    : Has(kVpclmul | kAvx2) ? &FoldVpclmul
                                            : &FoldPclmul;
  const SixteenBytes folded = fold(Order::kReversed, plan.folds, c, data, whole);
  c = EightBytes<Order, 8>(plan, folded.low) ^ EightBytes<Order, 0>(plan, folded.high);
  return UpdateBySlices<Order>(plan, c, data + whole, size - whole);
}

#endif

template <typename Order>
typename Order::Value Update(const CrcPlan<typename Order::Value>& plan, typename Order::Value c,
                             const std::uint8_t* data, std::size_t size) {
#if defined(__x86_64__)
  constexpr std::size_t kWorthFolding = 64;
  if (size >= kWorthFolding && Has(kPclmul | kSse41)) {
    return UpdateByFolding<Order>(plan, c, data, size);
  }
#endif
  return UpdateBySlices<Order>(plan, c, data, size);
}

}  // namespace

std::array<std::uint16_t, 256> MakeByteTable(std::uint16_t polynomial) {
  std::array<std::uint16_t, 256> table;
  for (unsigned i = 0; i < 256; ++i) {
    std::uint16_t value = 0;
    auto data = static_cast<std::uint16_t>(i << 8);
    for (int bit = 0; bit < 8; ++bit) {
      const bool differ = (value ^ data) & 0x8000;
      value = static_cast<std::uint16_t>((value << 1) ^ (differ ? polynomial : 0));
      data = static_cast<std::uint16_t>(data << 1);
    }
    table[i] = value;
  }
  return table;
}

std::array<std::uint32_t, 256> MakeByteTable(std::uint32_t polynomial) {
  std::array<std::uint32_t, 256> table;
  for (std::uint32_t i = 0; i < 256; ++i) {
    table[i] = i;
    for (int bit = 0; bit < 8; ++bit) table[i] = Reversed32::Times(table[i], polynomial);
  }
  return table;
}

CrcPlan<std::uint16_t> MakePlan(const std::array<std::uint16_t, 256>& table,
                                std::uint16_t polynomial) {
  return Plan<Plain16>(table, polynomial);
}

CrcPlan<std::uint32_t> MakePlan(const std::array<std::uint32_t, 256>& table,
                                std::uint32_t polynomial) {
  return Plan<Reversed32>(table, polynomial);
}

std::uint16_t UpdateCrc(const CrcPlan<std::uint16_t>& plan, std::uint16_t value,
                        const std::uint8_t* data, std::size_t size) {
  return Update<Plain16>(plan, value, data, size);
}

std::uint32_t UpdateCrc(const CrcPlan<std::uint32_t>& plan, std::uint32_t value,
                        const std::uint8_t* data, std::size_t size) {
  return Update<Reversed32>(plan, value, data, size);
}

}  // namespace qel::checks
