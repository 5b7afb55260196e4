// Version resources: PE and ELF files and blocks. What is found lies in its block, whatever the
// file says. The first byte chooses: a whole file, or a block and the size of its buffer.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <span>
#include <string>
#include <vector>

#include "qelbase/outside/system/version.h"
#include "qelbase/outside/system/version_internal.h"

using namespace qel::sys;

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

void checkValue(const std::vector<std::byte>& block, const std::wstring& path, bool is_text) {
  const void* value = nullptr;
  UINT length = 0;
  if (!VerQueryValueW(block.data(), path.c_str(), &value, &length)) return;
  const auto* const begin = static_cast<const std::byte*>(value);
  require(begin >= block.data() && begin <= block.data() + block.size());
  const auto left = static_cast<std::size_t>(block.data() + block.size() - begin);
  require(length * (is_text ? sizeof(wchar_t) : 1) <= left);
  if (is_text && length > 0) require(static_cast<const wchar_t*>(value)[length - 1] == 0);
}

void checkBlock(Bytes resource, std::size_t size) {
  std::vector<std::byte> block(size);
  if (!FillVersionBlock(resource, block.data(), size)) return;
  checkValue(block, L"\\", false);
  checkValue(block, L"\\VarFileInfo\\Translation", false);
  for (const VersionText& text : VersionTexts(block.data())) {
    require(text.text.size() * sizeof(wchar_t) < size);
    checkValue(block, L"\\StringFileInfo\\" + text.table + L"\\" + text.name, false);
  }
}

void checkFile(Bytes file) {
  std::size_t asked = 0;
  const auto read = [&](std::uint64_t at, void* data, std::size_t size) {
    require(at <= file.size() && size <= file.size() - at);
    asked += size;
    std::memcpy(data, file.data() + at, size);
    return true;
  };
  ByteSource source(file.size(), read);
  std::vector<std::byte> resource;
  const DWORD error = ReadVersionResource(source, resource);
  // Headers and tables are read once each; notes may be told by many segments, up to a limit.
  require(asked <= 8 * file.size() + (64 << 20) + 4096);
  require((error == 0) == !resource.empty() || error != 0);
  if (error == 0) checkBlock(resource, VersionBlockSize(resource.size()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const Bytes input = std::as_bytes(std::span(data, size));
  if (data[0] == 'B') {
    const Bytes resource = input.subspan(2, std::min<std::size_t>(size - 2, 0xFFFF));
    checkBlock(resource, VersionBlockSize(resource.size()));
    checkBlock(resource, data[1] * std::size_t{4});
  } else {
    checkFile(input);
  }
  return 0;
}
