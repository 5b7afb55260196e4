// Descriptors: a head, and up to four parts, each by offset or by pointer. Only their lengths are
// looked at.

#include <array>
#include <cstring>

#include "qelbase/outside/system/registry_internal.h"

namespace qel::sys::registry {

namespace {

constexpr std::size_t kHead = 20;  // revision, filler, 16-bit control, four offsets
constexpr std::uint16_t kWithOffsets = 0x8000;
constexpr std::uint16_t kHasPermissions = 0x4;
constexpr std::uint16_t kHasAudit = 0x10;
constexpr std::size_t kOwner = 0, kGroup = 1, kAudit = 2, kPermissions = 3;  // as in the head
constexpr std::array<DWORD, 4> kPartBits{1, 2, 8, 4};

struct Descriptor {
  std::uint16_t control = kWithOffsets;
  std::array<std::string, 4> parts;
};

template <typename T>
T load(const char* at) {
  T value;
  std::memcpy(&value, at, sizeof value);
  return value;
}

// An identity is revision, count and six bytes before its 32-bit numbers; a list has its own size.
std::string takePart(std::size_t part, const char* at) {
  const bool is_identity = part == kOwner || part == kGroup;
  const std::size_t size = is_identity ? 8 + 4 * std::size_t(static_cast<unsigned char>(at[1]))
                                       : load<std::uint16_t>(at + 2);
  return {at, size};
}

std::string encode(const Descriptor& descriptor) {
  std::string bytes(kHead, '\0');
  bytes[0] = 1;
  const std::uint16_t control = descriptor.control | kWithOffsets;
  std::memcpy(&bytes[2], &control, sizeof control);
  for (std::size_t i = 0; i < 4; ++i) {
    if (descriptor.parts[i].empty()) continue;
    const auto offset = static_cast<std::uint32_t>(bytes.size());
    std::memcpy(&bytes[4 + 4 * i], &offset, sizeof offset);
    bytes += descriptor.parts[i];
    bytes.resize((bytes.size() + 3) / 4 * 4);
  }
  return bytes;
}

// Of bytes that come from a hive: every offset is checked.
Descriptor decode(const std::string& bytes) {
  Descriptor out;
  if (bytes.size() < kHead) return out;
  out.control = load<std::uint16_t>(&bytes[2]);
  for (std::size_t i = 0; i < 4; ++i) {
    const std::uint32_t offset = load<std::uint32_t>(&bytes[4 + 4 * i]);
    if (offset < kHead || offset > bytes.size() - 4) continue;
    const std::string_view left = std::string_view(bytes).substr(offset);
    const bool is_identity = i == kOwner || i == kGroup;
    const std::size_t size = is_identity ? 8 + 4 * std::size_t(static_cast<unsigned char>(left[1]))
                                         : load<std::uint16_t>(left.data() + 2);
    if (size <= left.size()) out.parts[i] = left.substr(0, size);
  }
  return out;
}

std::uint16_t controlOf(DWORD parts) {
  return static_cast<std::uint16_t>((parts & kPartBits[kPermissions] ? 0x150C : 0) |
                                    (parts & kPartBits[kAudit] ? 0x2A30 : 0));
}

}  // namespace

std::string SelfRelative(const void* descriptor, DWORD parts) {
  if (!descriptor) return {};
  const char* const head = static_cast<const char*>(descriptor);
  if (head[0] != 1) return {};
  Descriptor out;
  out.control = load<std::uint16_t>(head + 2);
  for (std::size_t i = 0; i < 4; ++i) {
    const bool there = i < kAudit || (out.control & (i == kAudit ? kHasAudit : kHasPermissions));
    if (!there || !(parts & kPartBits[i])) continue;
    const char* at = nullptr;
    if (out.control & kWithOffsets) {
      const std::uint32_t offset = load<std::uint32_t>(head + 4 + 4 * i);
      if (offset) at = head + offset;
    } else {
      at = load<const char*>(head + 8 + sizeof(void*) * i);
    }
    if (at) out.parts[i] = takePart(i, at);
  }
  return encode(out);
}

std::string MergeDescriptor(const std::string& old, const std::string& change, DWORD parts) {
  Descriptor merged = decode(old);
  Descriptor changed = decode(change);
  const std::uint16_t bits = controlOf(parts);
  merged.control = static_cast<std::uint16_t>((merged.control & ~bits) | (changed.control & bits));
  for (std::size_t i = 0; i < 4; ++i) {
    if (parts & kPartBits[i]) merged.parts[i] = changed.parts[i];
  }
  return encode(merged);
}

std::string PickDescriptor(const std::string& whole, DWORD parts) {
  return MergeDescriptor({}, whole, parts);
}

}  // namespace qel::sys::registry
