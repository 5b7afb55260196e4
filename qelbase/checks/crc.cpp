// The portable form: sixteen bytes a step, by table.
#include <vector>

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
FoldPairs Folds(typename Order::Value polynomial) {
  constexpr unsigned kPiece = 128;
  constexpr unsigned kWidth = 8 * sizeof polynomial;
  std::vector<typename Order::Value> powers(kPiece * (FoldPairs::kPieces + 1), Order::kOne);
  for (std::size_t i = 1; i < powers.size(); ++i) {
    powers[i] = Order::Times(powers[i - 1], polynomial);
  }
  const auto over = [&](unsigned bits) -> FoldPair {
    return {.low = Order::Place(powers[bits + Order::kLowPower]),
            .high = Order::Place(powers[bits + Order::kHighPower])};
  };
  FoldPairs folds{.over_512 = over(512), .over_2048 = over(2048), .to_end = {}};
  unsigned behind = FoldPairs::kPieces;
  for (FoldPair& pair : folds.to_end) pair = over(kPiece * --behind + kWidth);
  return folds;
}

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
  plan.folds = Folds<Order>(polynomial);
  return plan;
}

// What `size` bytes give that the value has met, at most as many as there are slices.
template <typename Order, typename ByteAt>
__attribute__((always_inline)) inline typename Order::Value SumOfSlices(
    const CrcPlan<typename Order::Value>& plan, std::size_t size, ByteAt byte_at) {
  typename Order::Value sum = 0;
  for (std::size_t i = 0; i < size; ++i) sum ^= plan.slices[size - 1 - i][byte_at(i)];
  return sum;
}

template <typename Order>
typename Order::Value UpdateBySlices(const CrcPlan<typename Order::Value>& plan,
                                     typename Order::Value c, const std::uint8_t* data,
                                     std::size_t size) {
  constexpr std::size_t kSlices = CrcPlan<typename Order::Value>::kSlices;
  const auto met_byte = [&](std::size_t i) {
    const auto change = i < sizeof c ? static_cast<std::uint8_t>(Order::Meet(c) >> (8 * i)) : 0;
    return data[i] ^ change;
  };
  for (; size >= kSlices; data += kSlices, size -= kSlices) {
    c = SumOfSlices<Order>(plan, kSlices, met_byte);
  }
  if (size >= sizeof c) return SumOfSlices<Order>(plan, size, met_byte);
  for (; size != 0; --size) c = Order::Step(plan.slices[0], c, *data++);
  return c;
}

#if defined(__x86_64__)

// The best that the processor has; null if it has none.
inline auto FoldingOfProcessor() -> decltype(&FoldPclmul) {
  if (Has(kVpclmul | kAvx512)) return &FoldVpclmul512;
  if (Has(kVpclmul | kAvx2)) return &FoldVpclmul;
  if (Has(kPclmul | kSse41)) return &FoldPclmul;
  return nullptr;
}

template <typename Order>
typename Order::Value Remainder(const CrcPlan<typename Order::Value>& plan, SixteenBytes folded) {
  using Value = typename Order::Value;
  constexpr int kWidth = 8 * sizeof(Value);
  const std::uint64_t front = folded.low >> (64 - kWidth) | folded.high << kWidth;
  const auto end = static_cast<Value>(folded.high >> (64 - kWidth));
  const Value rest = SumOfSlices<Order>(
      plan, 8, [front](std::size_t i) { return static_cast<std::uint8_t>(front >> (8 * i)); });
  return static_cast<Value>(Order::Meet(end) ^ rest);
}

#endif

template <typename Order>
typename Order::Value Update(const CrcPlan<typename Order::Value>& plan, typename Order::Value c,
                             const std::uint8_t* data, std::size_t size) {
#if defined(__x86_64__)
  constexpr std::size_t kWorthFolding = 64;
  if (const auto fold = size >= kWorthFolding ? FoldingOfProcessor() : nullptr) {
    const std::size_t whole = size & ~std::size_t{15};
    c = Remainder<Order>(plan, fold(Order::kReversed, plan.folds, c, data, whole));
    data += whole;
    size -= whole;
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
