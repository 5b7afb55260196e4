// Version resources: real PE and ELF files, damaged ones, and the class on them.
#include "qelbase/platform/MVersionInfo.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "qelbase/outside/framework/CurrentInstance.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/modules.h"
#include "qelbase/outside/system/text.h"
#include "qelbase/platform/MVersionInfo_internal.h"

#include "tests/support/FaultyCalls.h"
#include "tests/support/LogLines.h"
#include "tests/support/TempFolder.h"

namespace {

namespace fs = std::filesystem;
using namespace qel::sys;
using qeltest::readBytes;
using qeltest::TempFolder;
using qeltest::writeBytes;

// --- bytes ---------------------------------------------------------------------------------------

template <typename T>
std::string le(T value) {
  std::string bytes(sizeof value, '\0');
  std::memcpy(bytes.data(), &value, sizeof value);
  return bytes;
}

std::string padded(std::string bytes) {
  bytes.resize((bytes.size() + 3) / 4 * 4);
  return bytes;
}

// A node of a version resource. `length` counts what the node's own field is to say.
std::string node(const std::wstring& key, const std::string& value, WORD value_length, WORD type,
                 const std::string& children = {}) {
  const std::string head = padded("lenght" + ToUtf16Le(key + L'\0'));
  const std::string all = (children.empty() ? head + value : padded(head + value)) + children;
  return le(static_cast<WORD>(all.size())) + le(value_length) + le(type) + all.substr(6);
}

std::string textNode(const std::wstring& key, const std::wstring& text) {
  return padded(node(key, ToUtf16Le(text + L'\0'), static_cast<WORD>(text.size() + 1), 1));
}

std::string fixedRecord(DWORD ms, DWORD ls, DWORD signature = 0xFEEF04BD) {
  return le(signature) + le(DWORD{0x10000}) + le(ms) + le(ls) + std::string(36, '\0');
}

std::string resource(DWORD ms, DWORD ls, const std::string& children = {}) {
  return node(L"VS_VERSION_INFO", fixedRecord(ms, ls), 52, 0, children);
}

// A PE file with one section, of which the last `data` is the resource. Words at fixed places: the
// section count at 0x46, the resource directory's address at 0x40 + 24 + 112 + 16.
constexpr std::size_t kTables = 0x200;
std::string peFile(const std::string& data, DWORD size) {
  std::string file = "MZ" + std::string(0x3A, '\0') + le(DWORD{0x40});
  file += std::string("PE\0\0", 4) + le(WORD{0x8664}) + le(WORD{1}) + std::string(12, '\0') +
          le(WORD{240}) + le(WORD{0x2022});
  std::string optional_header = le(WORD{0x20B}) + std::string(106, '\0') + le(DWORD{16});
  optional_header += std::string(16, '\0') + le(DWORD{0x1000}) + le(DWORD{0x100});
  optional_header.resize(240);
  file += optional_header + std::string(".rsrc\0\0\0", 8) + le(DWORD{0x10000}) + le(DWORD{0x1000}) +
          le(static_cast<DWORD>(0x58 + data.size())) + le(DWORD{kTables});
  file.resize(kTables);
  const auto table = [](DWORD id, DWORD offset) {
    return std::string(12, '\0') + le(WORD{0}) + le(WORD{1}) + le(id) + le(offset);
  };
  file += table(16, 0x80000018) + table(1, 0x80000030) + table(0x409, 0x48);
  return file + le(DWORD{0x1058}) + le(size) + std::string(8, '\0') + data;
}
std::string peFile(const std::string& data) {
  return peFile(data, static_cast<DWORD>(data.size()));
}

struct Damage {
  const char* name;
  std::string file;
  DWORD error;  // 0: the resource is read, whatever it holds
};

std::string patched(std::string file, std::size_t at, const std::string& bytes) {
  return file.replace(at, bytes.size(), bytes);
}

MFileName fileName(const fs::path& path) {
  return MFileName(TempFolder::wideName(path).c_str(), false);
}

std::wstring valueOf(const MVersionInfo& info, const wchar_t* name) {
  CStringW text = L"untouched";
  info.GET_VALUE(name, text);
  return text.GetString();
}

// --- files ---------------------------------------------------------------------------------------

class VersionFiles : public testing::Test {
 protected:
  // The code of a file with this content; 0 if it has a block.
  DWORD errorOf(const std::string& content) const {
    writeBytes(folder / "file.dll", content);
    SetLastError(0);
    const DWORD size = GetFileVersionInfoSizeW(folder.wide("file.dll").c_str(), nullptr);
    EXPECT_EQ(size == 0, GetLastError() != 0);
    return GetLastError();
  }
  // Read by the class.
  std::optional<MVersionInfo> read(const std::string& content) const {
    writeBytes(folder / "file.dll", content);
    MVersionInfo info;
    if (!info.GET_FILE_VERSION_INFO(fileName(folder / "file.dll"))) return std::nullopt;
    return info;
  }
  TempFolder folder;
};

std::string output(const std::string& command) {
  std::string text;
  std::FILE* pipe = popen(command.c_str(), "r");
  std::array<char, 4096> part;
  for (std::size_t size; pipe && (size = fread(part.data(), 1, part.size(), pipe)) > 0;)
    text.append(part.data(), size);
  if (pipe) pclose(pipe);
  return text;
}

// wrestool is another reader of the same directories.
TEST_F(VersionFiles, RealLibrariesHaveWhatAnotherReaderFindsInThem) {
  int found = 0;
  for (const std::string file :
       {"/usr/i686-w64-mingw32/lib/zlib1.dll", "/usr/x86_64-w64-mingw32/lib/zlib1.dll"}) {
    ASSERT_TRUE(fs::exists(file)) << "Debian package libz-mingw-w64";
    const std::string theirs = output("wrestool --raw -x -t 16 " + file);
    ASSERT_GT(theirs.size(), 500U) << file;
    const std::wstring name = TempFolder::wideName(file);
    std::string block(GetFileVersionInfoSizeW(name.c_str(), nullptr), '\0');
    ASSERT_TRUE(
        GetFileVersionInfoW(name.c_str(), 0, static_cast<DWORD>(block.size()), block.data()));
    EXPECT_EQ(block.substr(0, theirs.size()), theirs) << file;
    MVersionInfo info;
    EXPECT_TRUE(info.GET_FILE_VERSION_INFO(fileName(file)));
    EXPECT_EQ(valueOf(info, L"InternalName"), L"zlib1.dll");
    EXPECT_EQ(valueOf(info, L"FileVersion"),
              std::wstring(info.GET_FILE_VERSION(L"%d.%d.%d", L"123").GetString()));
    ++found;
  }
  EXPECT_EQ(found, 2);
}

TEST_F(VersionFiles, DamageIsToldAndNeverFollowed) {
  const std::string good = peFile(resource(0x00020009, 0x00030001));
  const std::string elf = readBytes(PLAIN_MODULE);
  const std::size_t note = elf.find(std::string("QelBase\0", 8)) - 12;
  std::string huge_notes = elf;
  for (std::size_t at = 64; at < 64 + 56 * 12; at += 56)
    if (huge_notes[at] == 4) huge_notes = patched(huge_notes, at + 32, le(std::uint64_t{1} << 40));
  const std::size_t first_table = kTables, second = kTables + 0x18, third = kTables + 0x30;
  const Damage rows[] = {
      {"sound", good, 0},
      {"empty", "", 193},
      {"text", "#!/bin/sh\n", 193},
      {"start of the header leads out", patched(good, 0x3C, le(DWORD{0xFFFFFFF0})), 193},
      {"cut in the header", good.substr(0, 0x50), 193},
      {"no directory of resources", patched(good, 0x40 + 24 + 108, le(DWORD{2})), 1812},
      {"no resources", patched(good, 0x40 + 24 + 112 + 16, le(DWORD{0})), 1812},
      {"resources outside of the sections",
       patched(good, 0x40 + 24 + 112 + 16, le(DWORD{0xFFFFF000})), 193},
      {"65535 sections", patched(good, 0x46, le(WORD{0xFFFF})), 193},
      {"huge table", patched(good, first_table + 12, le(DWORD{0xFFFFFFFF})), 193},
      {"another type", patched(good, first_table + 16, le(DWORD{17})), 1813},
      {"another name", patched(good, second + 16, le(DWORD{2})), 1814},
      {"table leads to itself", patched(good, first_table + 20, le(DWORD{0x80000000})), 1814},
      {"leaf is a table", patched(good, third + 20, le(DWORD{0x80000030})), 193},
      {"table is a leaf", patched(good, first_table + 20, le(DWORD{0x48})), 193},
      {"data leads out", patched(good, kTables + 0x48, le(DWORD{0x20000})), 193},
      {"data without end", patched(good, kTables + 0x4C, le(DWORD{0x7FFFFFFF})), 193},
      {"no data", peFile("", 0), 1812},
      {"cut in the data", good.substr(0, good.size() - 1), 193},
      {"ELF without resources", readBytes(LOADABLE_MODULE), 1812},
      {"ELF, sound", elf, 0},
      {"ELF, cut in the header", elf.substr(0, 40), 193},
      {"ELF, segments lead out", patched(elf, 32, le(std::uint64_t{1} << 63)), 193},
      {"ELF, huge notes", huge_notes, 223},
      {"ELF, huge note", patched(elf, note + 4, le(DWORD{0xFFFFFFF0})), 1812},
  };
  for (const Damage& row : rows) EXPECT_EQ(errorOf(row.file), row.error) << row.name;
  const std::wstring missing = folder.wide("none.dll");
  EXPECT_EQ(GetFileVersionInfoSizeW(missing.c_str(), nullptr), 0U);
  EXPECT_EQ(GetLastError(), 2U);
  EXPECT_EQ(GetFileVersionInfoSizeW(folder.wide("none\\a.dll").c_str(), nullptr), 0U);
  EXPECT_EQ(GetLastError(), 3U);
  EXPECT_EQ(GetFileVersionInfoSizeW(folder.wide().c_str(), nullptr), 0U);
  EXPECT_EQ(GetLastError(), 5U);
}

TEST_F(VersionFiles, AFailingDiskIsNoFileWithoutAVersion) {
  writeBytes(folder / "file.dll", peFile(resource(1, 1)));
  bool ok = false;
  DWORD error = 0;
  qeltest::forEachFault([] {},
                        [&] {
                          SetLastError(0);
                          ok = GetFileVersionInfoSizeW(folder.wide("file.dll").c_str(), nullptr) !=
                               0;
                          error = GetLastError();
                        },
                        [&](const qeltest::Fault& fault) {
                          EXPECT_TRUE(ok || fault.struck);
                          const bool is_told = error != 0 && error != 1812 && error != 1813;
                          EXPECT_TRUE(ok || is_told) << error;
                        },
                        {{.kind = qeltest::Fault::fail_for_good, .error = EIO, .reading = true},
                         {.kind = qeltest::Fault::cut_for_good, .reading = true}});
}

// --- blocks --------------------------------------------------------------------------------------

struct Block {
  explicit Block(const std::string& content, std::size_t size = 4096) : bytes(size, '\xEE') {
    const TempFolder folder;
    writeBytes(folder / "f", peFile(content));
    filled =
        GetFileVersionInfoW(folder.wide("f").c_str(), 0, static_cast<DWORD>(size), bytes.data());
  }
  // The text under a path and its length, "none" if there is none.
  std::wstring text(const wchar_t* path) const {
    const void* value = nullptr;
    UINT length = 0;
    if (!VerQueryValueW(bytes.data(), path, &value, &length)) return L"none";
    return std::wstring(static_cast<const wchar_t*>(value)) + L"|" + std::to_wstring(length);
  }
  UINT length(const wchar_t* path) const {
    const void* value = nullptr;
    UINT length = 0xEEEE;
    return VerQueryValueW(bytes.data(), path, &value, &length) ? length : 0xFFFF;
  }
  std::string bytes;
  BOOL filled = 0;
};

std::string strings(const std::string& texts) {
  return node(L"StringFileInfo", "", 0, 1, node(L"040904B0", "", 0, 1, texts));
}

TEST(VersionBlock, PathsFindTextsWhateverTheirCaseAndTheirCompiler) {
  const std::string in_bytes =  // a compiler that counts bytes where it should count characters
      padded(node(L"Bytes", ToUtf16Le(L"abc\0"), 8, 1));
  const std::string open = padded(node(L"Open", ToUtf16Le(L"no zero"), 7, 1));
  const std::string empty = padded(node(L"Empty", "", 0, 1));
  const std::string texts =
      textNode(L"Name", L"漢\U00010348!") + in_bytes + open + empty + textNode(L"Last", L"z");
  const Block block(resource(1, 2, strings(texts)));
  ASSERT_TRUE(block.filled);
  EXPECT_EQ(block.length(L"\\"), 52U);
  EXPECT_EQ(block.length(L""), 52U);
  EXPECT_EQ(block.text(L"\\StringFileInfo\\040904b0\\NAME"), L"漢\U00010348!|4");
  EXPECT_EQ(block.text(L"\\stringfileinfo\\040904B0\\Bytes"), L"abc|4");
  EXPECT_EQ(block.text(L"\\StringFileInfo\\040904B0\\Open"), L"no zero|8");
  EXPECT_EQ(block.text(L"\\StringFileInfo\\040904B0\\Empty"), L"|0");
  EXPECT_EQ(block.text(L"StringFileInfo\\040904B0\\Last"), L"z|2");
  EXPECT_EQ(block.length(L"\\StringFileInfo"), 0U);
  for (const wchar_t* path : {L"\\Name", L"\\StringFileInfo\\040904B0\\Nam", L"\\VarFileInfo",
                              L"\\StringFileInfo\\040904B0\\Name\\x\\y"}) {
    SetLastError(0);
    EXPECT_EQ(block.text(path), L"none");
    EXPECT_EQ(GetLastError(), 1813U);
  }
  const std::vector<VersionText> all = VersionTexts(block.bytes.data());
  ASSERT_EQ(all.size(), 5U);
  EXPECT_EQ(all[4].table + L" " + all[4].name + L" " + all[4].text, L"040904B0 Last z");
}

TEST(VersionBlock, NodesThatRunOutOfTheirPlaceAreCutThere) {
  const std::string sound = resource(1, 2, strings(textNode(L"Name", L"text")));
  const std::size_t at = sound.find(ToUtf16Le(L"Name")) - 6;
  EXPECT_EQ(Block(patched(sound, at, le(WORD{0xFFFF}))).text(L"StringFileInfo\\040904B0\\Name"),
            L"text|5");
  EXPECT_EQ(Block(patched(sound, at + 2, le(WORD{0xFFFF}))).text(L"StringFileInfo\\040904B0\\Name"),
            L"text|5");
  for (const int length : {0, 5}) {  // would never lead on
    EXPECT_EQ(Block(patched(sound, at, le(static_cast<WORD>(length))))
                  .text(L"StringFileInfo\\040904B0\\Name"),
              L"none");
  }
  EXPECT_EQ(Block(patched(sound, 0, le(WORD{0}))).length(L"\\"), 0xFFFFU);
  EXPECT_EQ(Block(patched(sound, 0, le(WORD{0xFFFF}))).length(L"\\"), 52U);
}

// Every size: what is written stays inside, and what is found is sound.
TEST(VersionBlock, ASmallBufferGetsWhatFits) {
  const std::string whole = resource(7, 2, strings(textNode(L"Name", L"text")));
  for (std::size_t size = 0; size < 700; ++size) {
    Block block(whole, size);
    EXPECT_TRUE(size >= 24 || !block.filled) << size;
    if (!block.filled) continue;
    const std::wstring text = block.text(L"\\StringFileInfo\\040904B0\\Name");
    EXPECT_TRUE(text == L"none" ||
                text.starts_with(std::wstring(L"text").substr(0, text.find(L'|'))))
        << size;
    EXPECT_TRUE(size < 699 || text == L"text|5");
  }
}

// --- the class -----------------------------------------------------------------------------------

TEST_F(VersionFiles, PartsTextsAndCopies) {
  MVersionInfo program;
  CStringW text = L"untouched";
  EXPECT_FALSE(program.GET_VALUE(L"CompanyName", text));
  EXPECT_EQ(text, CStringW(L"untouched"));
  EXPECT_EQ(program.GET_FILE_VERSION(L"%d.%d.%d.%d", L"1234"), CStringW(L"2.9.0.65535"));
  EXPECT_EQ(program.GET_FILE_VERSION(L"%d-%d", L"21"), CStringW(L"9-2"));
  EXPECT_EQ(program.GET_FILE_VERSION(L"%d %d %d %d", L"4053"), CStringW(L"65535 0 0 0"));
  EXPECT_EQ(program.GET_FILE_VERSION(L"%d %d", L"4"), CStringW(L"65535 0"));
  EXPECT_EQ(program.GET_FILE_VERSION(L"", L"1"), CStringW());
  EXPECT_EQ(program.GET_FILE_VERSION(L"%d", nullptr), CStringW());
  EXPECT_EQ(valueOf(program, L"companyname"), L"Größe 漢 \U00010348");
  EXPECT_EQ(valueOf(program, L"Company"), L"untouched");
  const std::uint32_t product[] = {3, 1, 4, 1};
  for (int i = 0; i < 4; ++i) EXPECT_EQ(program.GET_PRODUCT_VERSION_VALUE(i), product[i]);
  EXPECT_EQ(program.GET_VERSION_VALUE(4), 0U);
  EXPECT_EQ(program.GET_VERSION_VALUE(-1), 0U);

  MVersionInfo copy;
  {
    MVersionInfo plain;
    ASSERT_TRUE(plain.GET_FILE_VERSION_INFO(fileName(PLAIN_MODULE)));
    copy = program;
    copy = plain;
    EXPECT_EQ(valueOf(MVersionInfo(plain), L"FileDescription"), L"western");
  }
  // Without a table of translations: language 0, code page 1252.
  EXPECT_EQ(valueOf(copy, L"FileDescription"), L"western");
  EXPECT_TRUE(program < copy && copy > program && !(program == copy));  // 2.9 and 10.0
  EXPECT_FALSE(copy.GET_FILE_VERSION_INFO(fileName(folder / "none")));
  EXPECT_EQ(copy.GET_VERSION_VALUE(0), 0U);
}

TEST_F(VersionFiles, ComparesPartByPartAndKnowsASoundRecord) {
  const auto one = read(peFile(resource(0x00020000, 1)));
  const auto two = read(peFile(resource(0x00020000, 2)));
  ASSERT_TRUE(one && two);
  EXPECT_TRUE(*one < *two && !(*one > *two) && !(*one == *two));
  EXPECT_TRUE(*two > *one && !(*two < *one) && *one == *one);
  EXPECT_FALSE(read(peFile(node(L"VS_VERSION_INFO", fixedRecord(1, 1, 0xFEEF04BC), 52, 0))));
  EXPECT_FALSE(read(peFile(node(L"VS_VERSION_INFO", fixedRecord(1, 1).substr(0, 48), 48, 0))));
}

TEST(VersionModules, OfLoadedModulesAndOfTheFrameworksOwn) {
  MVersionInfo info;
  EXPECT_FALSE(info.GET_MODULE_VERSION_INFO(L"surely-not"));
  ASSERT_TRUE(info.GET_MODULE_VERSION_INFO(nullptr));
  EXPECT_EQ(info.GET_VERSION_VALUE(0), 2U);
  const HMODULE module = LoadLibraryW(TempFolder::wideName(PLAIN_MODULE).c_str());
  ASSERT_NE(module, nullptr);
  ASSERT_TRUE(info.GET_MODULE_VERSION_INFO(L"plain_module"));
  EXPECT_EQ(info.GET_VERSION_VALUE(0), 10U);
  SetCurrentInstance(module);
  ASSERT_TRUE(info.GET_MODULE_VERSION_INFO(nullptr));
  EXPECT_EQ(info.GET_VERSION_VALUE(3), 8U);
  SetCurrentInstance(nullptr);
  FreeLibrary(module);
}

TEST(VersionModules, ALibraryTellsItsVersionAndIsFreedAgain) {
  const std::wstring name = TempFolder::wideName(LOADABLE_MODULE);
  const HMODULE module = LoadLibraryW(name.c_str());
  ASSERT_NE(module, nullptr);
  auto* const result = reinterpret_cast<std::int32_t*>(GetProcAddress(module, "result"));
  qeltest::LogLines log;
  MVersionInfoDLL version;
  version.dwMajorVersion = 77;  // the library wants an empty record
  EXPECT_TRUE(version.GET_VERSION_INFO(name.c_str()));
  EXPECT_EQ(
      version.dwMajorVersion * 1000000 + version.dwMinorVersion * 10000 + version.dwBuildNumber,
      5504134U);
  EXPECT_EQ(version.dwPlatformID, 600U);
  EXPECT_TRUE(log.take().empty());
  *result = -1;
  EXPECT_FALSE(version.GET_VERSION_INFO(name.c_str()));
  *result = 0;
  EXPECT_FALSE(version.GET_VERSION_INFO(TempFolder::wideName(PLAIN_MODULE).c_str()));
  EXPECT_FALSE(version.GET_VERSION_INFO(L"surely-not.dll"));
  const std::wstring place = L"In MVersionInfoDLL::GET_VERSION_INFO() : ";
  EXPECT_EQ(log.take(),
            (std::vector{place + L"Could execute the 'DllGetVersion' function.",
                         place + L"Could not retrieve 'DllGetVersion' function address.",
                         place + L"Error loading 'surely-not.dll' into memory"}));
  FreeLibrary(module);
  EXPECT_EQ(GetModuleHandleW(L"loadable_module"), nullptr);
  EXPECT_EQ(GetModuleHandleW(L"plain_module"), nullptr);
}

}  // namespace
