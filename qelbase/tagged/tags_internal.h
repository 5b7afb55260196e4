#pragma once
// What the tag record, the tag list and the tagged file share.

#include <array>
#include <cstdint>
#include <cstring>
#include <limits>

#include "qelbase/outside/components/MFile.h"
#include "qelbase/outside/components/logging.h"
#include "qelbase/tagged/MTag.h"

namespace qel::tagged {

using HeaderBytes = std::array<unsigned char, MTag::HeaderSize>;

// The six bytes of the name, the first in the lowest bits.
inline std::uint64_t NameBits(const MTag& tag) {
  std::uint64_t bits = 0;
  for (int i = 0; i < 6; ++i) {
    bits |= static_cast<std::uint64_t>(static_cast<unsigned char>(tag.m_name[i])) << (8 * i);
  }
  return bits;
}

// Name and version as they stand in the header, its first byte in the lowest bits.
inline std::uint64_t FrontOf(const MTag& tag) {
  return NameBits(tag) | static_cast<std::uint64_t>(tag.m_version[0]) << 48 |
         static_cast<std::uint64_t>(tag.m_version[1]) << 56;
}

inline void SetFront(MTag& tag, std::uint64_t front) {
  for (unsigned i = 0; i < 6; ++i) tag.m_name[i] = static_cast<char>(front >> (8 * i));
  tag.m_version[0] = static_cast<unsigned char>(front >> 48);
  tag.m_version[1] = static_cast<unsigned char>(front >> 56);
}

inline HeaderBytes Encode(const MTag& tag) {
  const std::uint64_t front = FrontOf(tag);
  const auto skip = static_cast<std::uint32_t>(tag.m_skip);
  HeaderBytes bytes;
  for (unsigned i = 0; i < 8; ++i) bytes[i] = static_cast<unsigned char>(front >> (8 * i));
  for (unsigned i = 0; i < 4; ++i) bytes[8 + i] = static_cast<unsigned char>(skip >> (8 * i));
  return bytes;
}

// Name, version and skip, and the flags of a tag that was just read; positions are left alone.
inline void Decode(const unsigned char* bytes, MTag& tag) {
  std::memcpy(tag.m_name, bytes, 6);
  tag.m_version[0] = bytes[6];
  tag.m_version[1] = bytes[7];
  const std::uint32_t skip =
      bytes[8] | bytes[9] << 8 | bytes[10] << 16 | static_cast<std::uint32_t>(bytes[11]) << 24;
  tag.m_skip = static_cast<std::int32_t>(skip);
  tag.m_written = false;
  tag.m_updated = false;
}

// Equal keys are equal names (up to the zero) and equal major versions.
inline std::uint64_t KeyOf(const MTag& tag) {
  std::uint64_t name = NameBits(tag);
  // The lowest bit here is the top bit of the first zero byte; what follows doesn't count.
  const std::uint64_t zeros = (name - 0x010101010101U) & ~name & 0x808080808080U;
  if (zeros != 0) name &= ((zeros & (~zeros + 1)) >> 7) - 1;
  return name | static_cast<std::uint64_t>(tag.m_version[0]) << 48;
}

inline bool IsHead(const MTag& tag) {
  return std::memcmp(tag.m_name, "QELCOM", 6) == 0;
}
inline bool IsData(const MTag& tag) {
  return std::memcmp(tag.m_name, "DATA", 5) == 0;
}
inline bool IsMuid(const MTag& tag) {
  return std::memcmp(tag.m_name, "MUID", 5) == 0;
}

inline bool FitsSkip(std::int64_t skip) {
  return skip >= 0 && skip <= std::numeric_limits<std::int32_t>::max();
}

// The buffer of every file that is opened here, in bytes.
inline constexpr std::size_t BufferSize = 262144;

// A header whose skip is negative ends a run of tags as an unreadable one does.
inline bool ReadSound(MFile& file, MTag& tag) {
  return tag.READ(file) && tag.m_skip >= 0;
}

// `mode` of the searches: 0 every tag, 1 those not yet rewritten, any other none.
inline bool Admits(std::uint32_t mode, const MTag& tag) {
  return mode == 0 || (mode == 1 && !tag.m_written);
}

// Gives each top-level tag that fits into the file to `keep`, from the current position on. A head
// tag is stepped over by its header alone, whatever its skip. True if the file ends where the last
// tag ends; GET_RESULT tells whether reading failed.
template <class Keep>
bool WalkRecords(MFile& file, Keep keep) {
  std::int64_t end = file.TELL();
  file.SEEK(0, 2);
  const std::int64_t size = file.TELL();
  file.SEEK(end, 0);
  MTag tag;
  HeaderBytes bytes;
  while (file.READ(bytes.data(), bytes.size()) == bytes.size()) {
    Decode(bytes.data(), tag);
    tag.m_position = end;
    tag.m_data_position = end + MTag::HeaderSize;
    if (tag.m_skip < 0 || tag.m_data_position + tag.m_skip > size) break;
    end = tag.m_data_position;
    if (IsHead(tag)) continue;
    keep(tag);
    end += tag.m_skip;
    file.SKIP(tag.m_skip);
  }
  return end == size;
}

QelSDK::Common::Logging::ILogger& GetLibraryLogger();

// One line of the pieces, put together without gaps.
template <class... Pieces>
void LogFailure(const Pieces&... pieces) {
  QelSDK::Common::Logging::LogMessage message;
  (message << ... << pieces);
  GetLibraryLogger().LogFailure(message);
}

void LogUnfitSkip(const wchar_t* place, const MTag& tag, std::int64_t skip);

}  // namespace qel::tagged
