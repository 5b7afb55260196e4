#include "qelbase/checks/CSHA1.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "qelbase/checks/bytes_internal.h"
#include "qelbase/checks/sha1_internal.h"
#include "qelbase/outside/system/descriptor_internal.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/names_internal.h"
#include "qelbase/outside/system/syscalls_internal.h"

using qel::checks::kSha1Block;
using qel::checks::Sha1Compress;
using qel::sys::Calls;
using qel::sys::ReadUpTo;

namespace {

constexpr std::size_t kPiece = 8000;

std::uint64_t LengthOf(const std::uint32_t (&bits)[2]) {
  return std::uint64_t{bits[1]} << 32 | bits[0];
}

// The file and what the system knows of it; no descriptor if it cannot be opened or is a folder.
qel::sys::Descriptor OpenFile(const char* name, struct stat& facts) {
  std::string native;
  if (!qel::sys::ToNative(qel::sys::WideText(name), native)) return {};
  qel::sys::Descriptor file = qel::sys::Descriptor::open(native, O_RDONLY);
  if (!file || Calls().fstat(file.get(), &facts) != 0 || S_ISDIR(facts.st_mode)) return {};
  return file;
}

}  // namespace

CSHA1::CSHA1() {
  Reset();
}  // NOLINT: buffer and digest have no value yet
CSHA1::CSHA1(const CSHA1& other) = default;
CSHA1& CSHA1::operator=(const CSHA1& other) = default;

CSHA1::~CSHA1() {
  explicit_bzero(m_buffer, sizeof m_buffer);
  Reset();
  __asm__ volatile("" : : "r"(this) : "memory");  // keeps the stores to a dying object
}

void CSHA1::Reset() {
  std::copy(qel::checks::kSha1Start.begin(), qel::checks::kSha1Start.end(), m_state);
  m_bits[0] = m_bits[1] = 0;
}

void CSHA1::Transform(std::uint32_t* state, const unsigned char* block) {
  Sha1Compress(state, block, 1);
}

void CSHA1::Update(const unsigned char* data, std::uint32_t length) {
  if (length == 0) return;
  const std::size_t fill = (m_bits[0] >> 3) & (kSha1Block - 1);
  const std::uint64_t bits = LengthOf(m_bits) + (std::uint64_t{length} << 3);
  m_bits[0] = static_cast<std::uint32_t>(bits);
  m_bits[1] = static_cast<std::uint32_t>(bits >> 32);

  if (fill + length < kSha1Block) {
    std::memcpy(m_buffer + fill, data, length);
    return;
  }
  std::size_t left = length;
  if (fill != 0) {
    const std::size_t taken = kSha1Block - fill;
    std::memcpy(m_buffer + fill, data, taken);
    Transform(m_state, m_buffer);
    data += taken;
    left -= taken;
  }
  const std::size_t blocks = left / kSha1Block;
  Sha1Compress(m_state, data, blocks);
  std::memcpy(m_buffer, data + blocks * kSha1Block, left % kSha1Block);
}

void CSHA1::Final() {
  const std::size_t fill = (m_bits[0] >> 3) & (kSha1Block - 1);
  qel::checks::Sha1Finish(m_state, m_buffer, fill, LengthOf(m_bits));
  for (std::size_t i = 0; i < 5; ++i) qel::checks::StoreBig32(m_digest + 4 * i, m_state[i]);

  // The working data is wiped: all zero, and the state compressed once more.
  std::memset(m_buffer, 0, sizeof m_buffer);
  m_bits[0] = m_bits[1] = 0;
  std::copy(qel::checks::kSha1Wiped.begin(), qel::checks::kSha1Wiped.end(), m_state);
}

bool CSHA1::HashFile(char* file_name) {
  struct stat facts;
  const qel::sys::Descriptor file = OpenFile(file_name, facts);
  if (!file) return false;
  // Cleared, so that what a shrinking file leaves unread is fed in as zeros or old file content.
  unsigned char piece[kPiece] = {};
  if (!S_ISREG(facts.st_mode)) {
    for (ssize_t got; (got = ReadUpTo(file.get(), piece, kPiece)) > 0;) {
      Update(piece, static_cast<std::uint32_t>(got));
    }
    return true;
  }
  for (auto left = static_cast<std::uint64_t>(facts.st_size); left != 0;) {
    const auto wanted = static_cast<std::uint32_t>(std::min<std::uint64_t>(left, kPiece));
    [[maybe_unused]] const ssize_t got = ReadUpTo(file.get(), piece, wanted);
    Update(piece, wanted);
    left -= wanted;
  }
  return true;
}

void CSHA1::ReportHash(char* text, unsigned char type) const {
  if (type > 1) {
    static constexpr char kUnknown[] = "Error: Unknown report type!";
    std::memcpy(text, kUnknown, sizeof kUnknown);
    return;
  }
  char* end = text + std::strlen(text);
  for (int i = 0; i < 20; ++i) {
    const char* separator = i == 0 ? "" : " ";
    end += std::sprintf(end, type == 0 ? "%s%02X" : "%s%u", separator, m_digest[i]);
  }
}

void CSHA1::GetHash(unsigned char* digest) const {
  std::memcpy(digest, m_digest, 20);
}
