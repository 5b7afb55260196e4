#include "qelbase/outside/system/version.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string_view>

#include "qelbase/outside/system/descriptor_internal.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/modules_internal.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/text.h"
#include "qelbase/outside/system/version_internal.h"

namespace qel::sys {

namespace {

// --- nodes ---------------------------------------------------------------------------------------
//
// A node: its length, the length of its value and its kind, 16 bits each; its key, 16-bit text with
// a zero; the value; further nodes. Key, value and nodes begin at multiples of 4 of the block. Its
// own length has no padding behind it. The length of a value counts characters in texts.
// https://learn.microsoft.com/windows/win32/menurc/vs-versioninfo

constexpr std::size_t kDeepest = 4;  // levels: the root, a kind of information, a table, a text
constexpr WORD kText = 1;

struct Node {
  std::wstring key;
  std::size_t end = 0;  // places in the block
  std::size_t value = 0;
  std::size_t value_end = 0;
  bool is_text = false;
};

std::u16string UnitsAt(Bytes block, std::size_t at, std::size_t end) {
  std::u16string units;
  Cursor cursor(block.first(end));
  if (!cursor.Skip(at)) return units;
  for (char16_t unit = 0; cursor.Take(unit) && unit != 0;) units += unit;
  return units;
}

// The node at a place; nothing if it does not begin before `limit`. What runs past the limit is
// cut.
std::optional<Node> NodeAt(Bytes block, std::size_t at, std::size_t limit) {
  Cursor cursor(block.first(limit));
  WORD length = 0, value_length = 0, kind = 0;
  if (!cursor.Skip(at) || !cursor.Take(length) || !cursor.Take(value_length) ||
      !cursor.Take(kind) || length < cursor.at() - at)
    return std::nullopt;
  Node node;
  node.end = std::min(at + length, limit);
  const std::u16string key = UnitsAt(block, cursor.at(), node.end);
  node.key = FromUtf16(key);
  node.is_text = kind == kText;
  const std::size_t value = PadTo4(cursor.at() + (key.size() + 1) * sizeof(char16_t));
  const std::size_t size = value_length * (node.is_text ? sizeof(char16_t) : 1);
  const bool has_value = value < node.end;
  node.value = has_value ? value : node.end / 4 * 4;
  node.value_end = has_value ? std::min(value + size, node.end) : node.value;
  return node;
}

// Calls `visit` for the nodes inside a node, until it gives false.
template <typename Visit>
void ForEachChild(Bytes block, const Node& parent, Visit visit) {
  for (std::size_t at = PadTo4(parent.value_end); at < parent.end;) {
    const std::optional<Node> child = NodeAt(block, at, parent.end);
    if (!child || !visit(*child)) return;
    at = PadTo4(child->end);
  }
}

std::optional<Node> RootOf(Bytes block) {
  return NodeAt(block, 0, block.size());
}

// The resource in a block that was filled: its length stands in front, and is sound.
Bytes ResourceOf(const void* block) {
  WORD length = 0;
  std::memcpy(&length, block, sizeof length);
  return {static_cast<const std::byte*>(block), length};
}

const wchar_t* WideText(const void* block, const Node& node) {
  const Bytes resource = ResourceOf(block);
  const std::byte* const room = resource.data() + PadTo4(resource.size());
  return reinterpret_cast<const wchar_t*>(room + 2 * node.value);
}

// Writes the texts of a node and of those inside it into the room behind the resource.
void WidenTexts(Bytes resource, std::byte* room, const Node& node, std::size_t level) {
  if (node.is_text) {
    const std::wstring text = FromUtf16(UnitsAt(resource, node.value, node.value_end));
    std::memcpy(room + 2 * node.value, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
  }
  if (level == kDeepest) return;
  ForEachChild(resource, node, [&](const Node& child) {
    WidenTexts(resource, room, child, level + 1);
    return true;
  });
}

std::optional<Node> FindNode(Bytes resource, std::wstring_view path) {
  std::optional<Node> node = RootOf(resource);
  std::size_t level = 1;
  while (node) {
    path.remove_prefix(std::min(path.find_first_not_of(L'\\'), path.size()));
    if (path.empty()) break;
    if (++level > kDeepest) return std::nullopt;
    const std::wstring_view wanted = path.substr(0, path.find(L'\\'));
    std::optional<Node> found;
    ForEachChild(resource, *node, [&](const Node& child) {
      if (CompareNoCase(child.key, wanted) == 0) found = child;
      return !found;
    });
    path.remove_prefix(wanted.size());
    node = std::move(found);
  }
  return node;
}

// --- files ---------------------------------------------------------------------------------------

// The native file: the one that the name reaches, else the one that would be loaded.
std::string FileOfName(const wchar_t* name) {
  std::string native;
  struct stat status {};
  if (ToNative(name, native) && Calls().stat(native.c_str(), &status) == 0) return native;
  const std::string library = LibraryFile(name);
  return library.empty() ? native : library;
}

DWORD ReadResource(const wchar_t* name, std::vector<std::byte>& resource) {
  if (!name || !*name) return ERROR_INVALID_PARAMETER;
  const std::string native = FileOfName(name);
  if (native.empty()) return ERROR_PATH_NOT_FOUND;
  const Descriptor file = Descriptor::open(native, O_RDONLY | O_NONBLOCK);
  struct stat status {};
  if (!file || Calls().fstat(file.get(), &status) != 0) return ErrorOfPath(errno, native);
  if (S_ISDIR(status.st_mode)) return ERROR_ACCESS_DENIED;
  if (!S_ISREG(status.st_mode)) return ERROR_BAD_EXE_FORMAT;
  const auto read = [&](std::uint64_t at, void* data, std::size_t size) {
    auto* out = static_cast<char*>(data);
    while (size > 0) {
      const ssize_t got = Calls().pread(file.get(), out, size, static_cast<off_t>(at));
      if (got < 0 && errno == EINTR) continue;
      if (got <= 0) return false;
      out += got;
      at += static_cast<std::size_t>(got);
      size -= static_cast<std::size_t>(got);
    }
    return true;
  };
  ByteSource source(static_cast<std::uint64_t>(status.st_size), read);
  return ReadVersionResource(source, resource);
}

}  // namespace

// --- blocks --------------------------------------------------------------------------------------

std::size_t VersionBlockSize(std::size_t resource_size) {
  return PadTo4(resource_size) + 2 * resource_size + sizeof(wchar_t);
}

bool FillVersionBlock(Bytes resource, void* block, std::size_t size) {
  constexpr std::size_t kHead = 3 * sizeof(WORD);
  if (size < VersionBlockSize(resource.size())) {
    const std::size_t fits = size < VersionBlockSize(0) ? 0 : (size - VersionBlockSize(0)) / 3;
    resource = resource.first(std::min(fits / 4 * 4, resource.size()));
  }
  if (resource.size() < kHead) return false;
  auto* const bytes = static_cast<std::byte*>(block);
  std::memset(bytes, 0, VersionBlockSize(resource.size()));
  std::memcpy(bytes, resource.data(), resource.size());
  WORD length = 0;
  std::memcpy(&length, bytes, sizeof length);
  length = static_cast<WORD>(std::min<std::size_t>(length, resource.size()));
  std::memcpy(bytes, &length, sizeof length);
  const Bytes sound(bytes, length);
  if (const auto root = RootOf(sound)) WidenTexts(sound, bytes + PadTo4(length), *root, 1);
  return true;
}

DWORD GetFileVersionInfoSizeW(const wchar_t* file, DWORD* zero) {
  if (zero) *zero = 0;
  std::vector<std::byte> resource;
  if (const DWORD error = ReadResource(file, resource)) {
    SetLastError(error);
    return 0;
  }
  return static_cast<DWORD>(VersionBlockSize(resource.size()));
}

BOOL GetFileVersionInfoW(const wchar_t* file, DWORD, DWORD size, void* block) {
  std::vector<std::byte> resource;
  DWORD error = block ? ReadResource(file, resource) : ERROR_INVALID_PARAMETER;
  if (error == ERROR_SUCCESS && !FillVersionBlock(resource, block, size))
    error = ERROR_INSUFFICIENT_BUFFER;
  if (error != ERROR_SUCCESS) SetLastError(error);
  return error == ERROR_SUCCESS;
}

BOOL VerQueryValueW(const void* block, const wchar_t* path, const void** value, UINT* length) {
  if (!block || !path || !value) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  const Bytes resource = ResourceOf(block);
  const std::optional<Node> node = FindNode(resource, path);
  if (!node) {
    SetLastError(ERROR_RESOURCE_TYPE_NOT_FOUND);
    return 0;
  }
  const std::size_t size = node->value_end - node->value;
  UINT count = static_cast<UINT>(size);
  *value = resource.data() + node->value;
  if (node->is_text) {
    const wchar_t* const text = WideText(block, *node);
    *value = text;
    count = size == 0 ? 0 : static_cast<UINT>(std::wcslen(text) + 1);
  }
  if (length) *length = count;
  return 1;
}

std::vector<VersionText> VersionTexts(const void* block) {
  std::vector<VersionText> texts;
  const Bytes resource = ResourceOf(block);
  const std::optional<Node> information = FindNode(resource, L"StringFileInfo");
  if (!information) return texts;
  ForEachChild(resource, *information, [&](const Node& table) {
    ForEachChild(resource, table, [&](const Node& node) {
      if (node.is_text) texts.push_back({table.key, node.key, WideText(block, node)});
      return true;
    });
    return true;
  });
  return texts;
}

}  // namespace qel::sys
