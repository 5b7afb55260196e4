#pragma once
// The tables of Rijndael, worked out by the compiler from the field of FIPS 197.

#include <array>
#include <bit>
#include <cstdint>

namespace qel::checks {

struct RijndaelTables {
  using Words = std::array<std::uint32_t, 256>;

  std::array<std::uint8_t, 256> sbox;
  std::array<std::uint8_t, 256> inverse_sbox;
  // [row][byte]: what a byte of that row of the state adds to its new column.
  std::array<Words, 4> encrypt;
  std::array<Words, 4> decrypt;
  std::array<Words, 4> inverse_mix;
};

namespace rijndael {

constexpr std::uint8_t Double(std::uint8_t a) {
  return static_cast<std::uint8_t>((a << 1) ^ (a & 0x80 ? 0x1B : 0));
}

constexpr std::uint8_t Multiply(std::uint8_t a, unsigned b) {
  std::uint8_t product = 0;
  for (; b != 0; b >>= 1, a = Double(a)) {
    if (b & 1) product ^= a;
  }
  return product;
}

// The column that `value` gives by the coefficients of row 0, top first.
constexpr std::uint32_t Column(std::uint8_t value, const std::uint8_t (&coefficients)[4]) {
  std::uint32_t column = 0;
  for (std::uint8_t coefficient : coefficients) {
    column = column << 8 | Multiply(value, coefficient);
  }
  return column;
}

constexpr void FillSboxes(RijndaelTables& tables) {
  // p runs through the field by powers of 3, q through the inverses.
  std::uint8_t p = 1;
  std::uint8_t q = 1;
  do {
    p = static_cast<std::uint8_t>(p ^ Double(p));
    q = Multiply(q, 0xF6);
    std::uint8_t s = 0x63;
    for (int i = 0; i < 5; ++i) s ^= std::rotl(q, i);
    tables.sbox[p] = s;
    tables.inverse_sbox[s] = p;
  } while (p != 1);
  tables.sbox[0] = 0x63;
  tables.inverse_sbox[0x63] = 0;
}

constexpr RijndaelTables MakeTables() {
  constexpr std::uint8_t kMix[4] = {2, 1, 1, 3};
  constexpr std::uint8_t kInverseMix[4] = {14, 9, 13, 11};
  RijndaelTables tables{};
  FillSboxes(tables);
  for (unsigned b = 0; b < 256; ++b) {
    const std::uint32_t encrypt = Column(tables.sbox[b], kMix);
    const std::uint32_t decrypt = Column(tables.inverse_sbox[b], kInverseMix);
    const std::uint32_t inverse_mix = Column(static_cast<std::uint8_t>(b), kInverseMix);
    for (int row = 0; row < 4; ++row) {
      tables.encrypt[row][b] = std::rotr(encrypt, 8 * row);
      tables.decrypt[row][b] = std::rotr(decrypt, 8 * row);
      tables.inverse_mix[row][b] = std::rotr(inverse_mix, 8 * row);
    }
  }
  return tables;
}

}  // namespace rijndael

alignas(64) inline constexpr RijndaelTables kRijndael = rijndael::MakeTables();

}  // namespace qel::checks
