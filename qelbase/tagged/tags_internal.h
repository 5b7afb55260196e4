#pragma once
// What the tag record, the tag list and the tagged file share.

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <limits>

#include "qelbase/outside/components/MFile.h"
#include "qelbase/outside/components/logging.h"
#include "qelbase/tagged/MTag.h"

namespace qel::tagged {

using HeaderBytes = std::array<unsigned char, MTag::HeaderSize>;

// A number of the file as one of the machine, and the other way.
template <class Number>
Number LittleEndian(Number value) {
  if constexpr (std::endian::native == std::endian::little) return value;
  return static_cast<Number>(__builtin_bswap64(value) >> (64 - 8 * sizeof value));
}

template <class Number>
Number Load(const void* bytes) {
  Number value;
  std::memcpy(&value, bytes, sizeof value);
  return LittleEndian(value);
}

template <class Number>
void Store(void* bytes, Number value) {
  value = LittleEndian(value);
  std::memcpy(bytes, &value, sizeof value);
}

// The six bytes of the name, the first in the lowest bits. Read by the pieces in which they are put
// down: a processor must wait for bytes that it has just stored in another way.
inline std::uint64_t NameBits(const MTag& tag) {
  return Load<std::uint32_t>(tag.m_name) |
         static_cast<std::uint64_t>(Load<std::uint16_t>(tag.m_name + 4)) << 32;
}

inline void SetNameBits(MTag& tag, std::uint64_t bits) {
  Store(tag.m_name, static_cast<std::uint32_t>(bits));
  Store(tag.m_name + 4, static_cast<std::uint16_t>(bits >> 32));
}

// Name and version as they stand in the header, its first byte in the lowest bits.
inline std::uint64_t FrontOf(const MTag& tag) {
  return NameBits(tag) | static_cast<std::uint64_t>(tag.m_version[0]) << 48 |
         static_cast<std::uint64_t>(tag.m_version[1]) << 56;
}

inline void SetFront(MTag& tag, std::uint64_t front) {
  SetNameBits(tag, front);
  tag.m_version[0] = static_cast<unsigned char>(front >> 48);
  tag.m_version[1] = static_cast<unsigned char>(front >> 56);
}

inline HeaderBytes Encode(const MTag& tag) {
  HeaderBytes bytes;
  Store(bytes.data(), FrontOf(tag));
  Store(bytes.data() + 8, static_cast<std::uint32_t>(tag.m_skip));
  return bytes;
}

// Name, version and skip, and the flags of a tag that was just read; positions are left alone.
inline void Decode(const unsigned char* bytes, MTag& tag) {
  std::memcpy(tag.m_name, bytes, 6);
  tag.m_version[0] = bytes[6];
  tag.m_version[1] = bytes[7];
  tag.m_skip = static_cast<std::int32_t>(Load<std::uint32_t>(bytes + 8));
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

// As MTag::WRITE, which is this.
inline bool WriteHeader(MFile& file, MTag& tag) {
  tag.m_position = file.POSITION();
  tag.m_data_position = tag.m_position + MTag::HeaderSize;
  const HeaderBytes bytes = Encode(tag);
  if (file.WRITE(bytes.data(), bytes.size()) != bytes.size()) return false;
  tag.m_written = true;
  tag.m_updated = false;
  return true;
}

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
