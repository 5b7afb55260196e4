#pragma once
// The compression function of SHA-1, over runs of whole blocks.

#include <array>
#include <cstddef>
#include <cstdint>

namespace qel::checks {

inline constexpr std::size_t kSha1Block = 64;
inline constexpr std::size_t kSha1LengthAt = 56;  // in the last block
inline constexpr std::array<std::uint32_t, 5> kSha1Start = {0x67452301, 0xEFCDAB89, 0x98BADCFE,
                                                            0x10325476, 0xC3D2E1F0};

// What a zero block makes of a zero state.
extern const std::array<std::uint32_t, 5> kSha1Wiped;

// Both by the fastest way that the processor has.

// Compresses `blocks` blocks of 64 bytes into `state`.
void Sha1Compress(std::uint32_t* state, const std::uint8_t* data, std::size_t blocks);

// Compresses the end of a message of `bits` bits: the `fill` bytes, less than a block, that
// `buffer` holds, the padding and the length. What `buffer` then holds has no meaning.
void Sha1Finish(std::uint32_t* state, std::uint8_t* buffer, std::size_t fill, std::uint64_t bits);

#if defined(__x86_64__)
void Sha1CompressSha(std::uint32_t* state, const std::uint8_t* data, std::size_t blocks);
void Sha1FinishSha(std::uint32_t* state, const std::uint8_t* buffer, std::size_t fill,
                   std::uint64_t bits);
#endif

}  // namespace qel::checks
