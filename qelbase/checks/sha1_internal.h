#pragma once
// The compression function of SHA-1, over runs of whole blocks.

#include <array>
#include <cstddef>
#include <cstdint>

namespace qel::checks {

inline constexpr std::size_t kSha1Block = 64;
inline constexpr std::array<std::uint32_t, 5> kSha1Start = {0x67452301, 0xEFCDAB89, 0x98BADCFE,
                                                            0x10325476, 0xC3D2E1F0};

// What a zero block makes of a zero state.
extern const std::array<std::uint32_t, 5> kSha1Wiped;

// Compresses `blocks` blocks of 64 bytes into `state`, by the fastest way that the processor has.
void Sha1Compress(std::uint32_t* state, const std::uint8_t* data, std::size_t blocks);

#if defined(__x86_64__)
void Sha1CompressSha(std::uint32_t* state, const std::uint8_t* data, std::size_t blocks);
#endif

}  // namespace qel::checks
