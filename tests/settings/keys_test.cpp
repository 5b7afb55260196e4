// COXRegistry, MRegKey, the product's keys and CRegUtils on a registry of the test's own.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "qelbase/outside/components/logging.h"
#include "qelbase/outside/system/debug.h"
#include "qelbase/settings/COXRegistry.h"
#include "qelbase/settings/CRegUtils.h"
#include "qelbase/settings/MSoftKey.h"

#include "tests/support/DatabaseCalls.h"
#include "tests/support/FaultyCalls.h"
#include "tests/support/RegistryFolder.h"

using namespace qel::sys;
using namespace qeltest;
namespace logging = QelSDK::Common::Logging;

namespace {

using Lines = std::vector<std::wstring>;

class Keys : public testing::Test {
 protected:
  Keys() {
    leadDatabaseThroughTable();
    logging::GetLoggerConfiguration().AddHandler(
        0,
        [lines = m_lines](const logging::LogInfo& info) {
          if (std::wstring(info.channel) == L"lib.qelbase") lines->push_back(info.text);
        },
        true);
  }
  ~Keys() override {
    logging::GetLoggerConfiguration().RemoveHandlers();
    MSoftKey::Init(nullptr, nullptr, nullptr);
  }
  // What was logged since the last call. Taking the handlers away waits for the last line.
  Lines logged() {
    logging::GetLoggerConfiguration().RemoveHandlers();
    Lines lines = std::move(*m_lines);
    m_lines->clear();
    logging::GetLoggerConfiguration().AddHandler(
        0, [kept = m_lines](const logging::LogInfo& info) { kept->push_back(info.text); }, true);
    return lines;
  }

  RegistryFolder m_registry;
  std::shared_ptr<Lines> m_lines = std::make_shared<Lines>();
};

// --- COXRegistry ---

TEST_F(Keys, ConnectionTellsItsNamesAndFailures) {
  COXRegistry registry;
  EXPECT_EQ(registry.Connect(HKEY_CURRENT_USER, L"somewhere"), 0);
  EXPECT_EQ(registry.GetErrorCode(), 6);
  EXPECT_EQ(logged(),
            Lines{L"In COXRegistry::Connect() : Registry connection failed (error code 6)"});
  EXPECT_EQ(registry.Connect(COXRegistry::keyCurrentConfig), 1);
  CStringW name;
  registry.GetRegistryName(name);
  EXPECT_STREQ(name, L"Unknown");
  EXPECT_EQ(registry.Connect(COXRegistry::keyUsers()), 1);
  registry.GetRegistryName(name);
  EXPECT_STREQ(name, L"HKEY_USERS");
  EXPECT_EQ(logged(),
            (Lines{L"In COXRegistry::Connect() : Registry name unknown",
                   L"In COXRegistry::Connect() : Trying to connect while previous registry still "
                   L"connected",
                   L"In COXRegistry::Connect() : Disconnecting previous registry connection"}));
  registry.GetComputerNameW(name);
  EXPECT_FALSE(name.IsEmpty());
  registry.OpenKey(L"None", COXRegistry::permissionRead);
  EXPECT_EQ(registry.Disconnect(), 1);
  EXPECT_EQ(registry.GetErrorCode(), 0);
  EXPECT_EQ(registry.Disconnect(), 1);
  registry.GetComputerNameW(name);
  EXPECT_STREQ(name, L"");
}

TEST_F(Keys, PathOpensLevelByLevel) {
  COXRegistry registry;
  EXPECT_EQ(registry.OpenPath(L"Software\\Co", HKEY_CURRENT_USER), 1);
  EXPECT_EQ(
      registry.OpenPath(L"Software\\Co\\App\\x", HKEY_CURRENT_USER, COXRegistry::permissionRead),
      0);
  CStringW name;
  registry.GetKeyName(name);
  EXPECT_STREQ(name, L"Software\\Co");
  EXPECT_EQ(registry.OpenPath(L"Software\\Co\\App\\x", HKEY_CURRENT_USER), 1);
  EXPECT_EQ(registry.SetStringValue(L"s", L""), 1);
  EXPECT_EQ(CRegUtils::GetRegKeySize(L"Software\\Co\\App\\x", L"s"), 2);
  EXPECT_EQ(registry.CreateKey(L"\\refused", nullptr, COXRegistry::optionNonVolatile,
                               COXRegistry::permissionAllAccess, nullptr, nullptr),
            0);
  EXPECT_EQ(registry.SetStringValue(L"s", L"still open"), 1);
  logged();
  EXPECT_EQ(registry.OpenKey(L"Software\\None", COXRegistry::permissionRead), 0);
  EXPECT_EQ(registry.QueryInfo(), 0);
  EXPECT_EQ(logged(), (Lines{L"In COXRegistry::OpenKey() : Open failed (error code 2)",
                             L"In COXRegistry::QueryInfo() : QueryInfo failed (error code 6)"}));
}

TEST_F(Keys, ConnectedValuesAreReadAsToldByType) {
  COXRegistry registry;
  registry.Connect(HKEY_CURRENT_USER);
  COXRegistry::CreationDisposition made{};
  ASSERT_EQ(registry.CreateKey(L"Software\\V", nullptr, COXRegistry::optionNonVolatile,
                               COXRegistry::permissionAllAccess, nullptr, &made),
            1);
  EXPECT_EQ(made, COXRegistry::dispositionCreated);
  CByteArray bytes, read;
  for (const BYTE b : std::initializer_list<BYTE>{1, 0, 255}) bytes.Add(b);
  const std::wstring longest(1023, L'x'), too_long(1024, L'x');
  EXPECT_EQ(registry.SetValue(L"b", bytes), 1);
  EXPECT_EQ(registry.SetValue(L"d", 0xFFFFFFFFU), 1);
  EXPECT_EQ(registry.SetValue(L"s", longest.c_str()), 1);
  EXPECT_EQ(registry.SetValue(L"t", too_long.c_str()), 1);
  EXPECT_EQ(registry.GetBinaryValue(L"b", read), 0);  // made, so never measured
  registry.OpenKey(L"Software\\V", COXRegistry::permissionAllAccess);
  ASSERT_EQ(registry.GetValue(L"b", read), 1);
  EXPECT_EQ(read.GetSize(), 3);
  EXPECT_EQ(read[2], 255);
  std::uint32_t word = 0;
  EXPECT_EQ(registry.GetValue(L"d", word), 1);
  EXPECT_EQ(word, 0xFFFFFFFFU);
  EXPECT_EQ(registry.GetValue(L"s", word), 0);
  EXPECT_EQ(registry.GetValue(L"d", read), 0);
  EXPECT_EQ(registry.SetStringValue(L"s", nullptr), 0);
  CStringW text;
  EXPECT_EQ(registry.GetValue(L"s", text), 1);
  EXPECT_EQ(text.GetLength(), 1023);
  EXPECT_EQ(registry.GetValue(L"t", text), 0);
  EXPECT_TRUE(text.IsEmpty());
  EXPECT_EQ(registry.GetNumberOfValues(), 4U);
  logged();
  EXPECT_EQ(registry.SetValue(nullptr, word), 0);
  EXPECT_EQ(registry.GetErrorCode(), 87);
  EXPECT_EQ(registry.GetValue(L"none", text), 0);
  CStringW name, class_name;
  EXPECT_EQ(registry.EnumerateKeys(0, name, class_name), 0);
  EXPECT_EQ(logged(),
            (Lines{L"In COXRegistry::SetValue() : Invalid parameter",
                   L"In COXRegistry::QueryValue() : QueryValue failed (error code 2)",
                   L"In COXRegistry::EnumerateKeys() : Enumeration failed (error code 259)"}));
}

TEST_F(Keys, EnumerationTellsNamesClassesAndTypes) {
  COXRegistry registry;
  registry.Connect(HKEY_CURRENT_USER);
  for (const auto& [key, class_name] :
       {std::pair{L"Software\\E", L"outer"}, std::pair{L"Software\\E\\Sub", L"inner"}}) {
    registry.CreateKey(key, class_name, COXRegistry::optionNonVolatile,
                       COXRegistry::permissionAllAccess, nullptr, nullptr);
  }
  registry.OpenKey(L"Software\\E", COXRegistry::permissionAllAccess);
  registry.SetValue(L"v", 7U);
  ASSERT_EQ(registry.QueryInfo(), 1);
  EXPECT_TRUE(registry.GetNumberOfSubkeys() == 1 && registry.GetNumberOfValues() == 1);
  CStringW name, class_name;
  registry.GetClassNameW(class_name);
  EXPECT_STREQ(class_name, L"outer");
  EXPECT_EQ(registry.EnumerateKeys(0, name, class_name), 1);
  EXPECT_TRUE(name == L"Sub" && class_name == L"inner");
  COXRegistry::KeyValueTypes type{};
  std::uint32_t word = 0, size = sizeof word;
  auto* const data = reinterpret_cast<std::uint8_t*>(&word);
  ASSERT_EQ(registry.EnumerateValues(0, name, type, data, size), 1);
  EXPECT_TRUE(name == L"v" && type == COXRegistry::typeDoubleWord && word == 7 && size == 4);
  EXPECT_EQ(registry.EnumerateValues(1, name, type, data, size), 0);
  registry.Disconnect();
  EXPECT_EQ(registry.GetNumberOfValues(), 0U);
}

TEST_F(Keys, WhatIsMissingIsRefused) {
  COXRegistry registry;
  registry.Connect(HKEY_CURRENT_USER);
  logged();
  std::uint32_t size = 0;
  const auto is_refused = [&](int done) { return done == 0 && registry.GetErrorCode() == 87; };
  EXPECT_TRUE(is_refused(registry.CreateKey(nullptr, nullptr, COXRegistry::optionNonVolatile,
                                            COXRegistry::permissionAllAccess, nullptr, nullptr)));
  EXPECT_TRUE(is_refused(registry.DeleteKey(nullptr)));
  EXPECT_TRUE(is_refused(registry.GetSecurity(0, nullptr, size)));
  EXPECT_TRUE(is_refused(registry.SetSecurity(0, nullptr)));
  EXPECT_TRUE(is_refused(registry.LoadFromFile(nullptr, L"f")));
  EXPECT_TRUE(is_refused(registry.LoadFromFile(L"k", nullptr)));
  EXPECT_TRUE(is_refused(registry.ReplaceFileW(nullptr, L"f", L"f")));
  EXPECT_TRUE(is_refused(registry.ReplaceFileW(L"k", nullptr, L"f")));
  EXPECT_TRUE(is_refused(registry.ReplaceFileW(L"k", L"f", nullptr)));
  EXPECT_TRUE(is_refused(registry.RestoreFromFile(nullptr, 0)));
  EXPECT_TRUE(is_refused(registry.SaveToFile(nullptr, nullptr)));
  EXPECT_TRUE(is_refused(registry.UnLoadKey(nullptr)));
  Lines expected;
  for (const wchar_t* name : {L"CreateKey", L"DeleteKey", L"GetSecurity", L"SetSecurity",
                              L"LoadFromFile", L"LoadFromFile", L"ReplaceFile", L"ReplaceFile",
                              L"ReplaceFile", L"RestoreFromFile", L"SaveToFile", L"UnLoadKey"}) {
    expected.push_back(std::wstring(L"In COXRegistry::") + name + L"() : Invalid parameter");
  }
  EXPECT_EQ(logged(), expected);
}

TEST_F(Keys, AFullDiskIsToldAndLosesNothing) {
  COXRegistry registry;
  registry.OpenPath(L"Software\\Full", HKEY_CURRENT_USER);
  ASSERT_EQ(registry.SetValue(L"v", 1U), 1);
  logged();
  {
    const FaultyCalls faulty({.kind = Fault::fail_for_good, .error = ENOSPC});
    EXPECT_EQ(registry.SetValue(L"v", 2U), 0);
    EXPECT_EQ(registry.GetErrorCode(), 112);
    EXPECT_EQ(registry.CreateKey(L"Software\\More", nullptr, COXRegistry::optionNonVolatile,
                                 COXRegistry::permissionAllAccess, nullptr, nullptr),
              0);
  }
  EXPECT_EQ(logged(),
            (Lines{L"In COXRegistry::CreateKey() : Subkey creation failed (error code 112)"}));
  registry.OpenPath(L"Software\\Full", HKEY_CURRENT_USER);
  std::uint32_t value = 0;
  EXPECT_EQ(registry.GetValue(L"v", value), 1);
  EXPECT_EQ(value, 1U);
}

TEST_F(Keys, DeletionLeavesTheParentOpen) {
  COXRegistry registry;
  registry.OpenPath(L"Software\\D\\a\\b", HKEY_CURRENT_USER);
  EXPECT_EQ(registry.DeleteKey(L"Software\\D\\a\\b"), 1);
  CStringW name;
  registry.GetKeyName(name);
  EXPECT_STREQ(name, L"Software\\D\\a");
  EXPECT_EQ(registry.DeleteKey(L"b"), 0);
  EXPECT_EQ(registry.GetErrorCode(), 2);
  EXPECT_EQ(registry.DeleteKey(L"Software\\None\\x"), 0);
  registry.GetKeyName(name);
  EXPECT_STREQ(name, L"Software\\D\\a");
}

TEST_F(Keys, ReadOnlyKeyOpensForReading) {
  COXRegistry registry;
  registry.OpenPath(L"Software\\RO", HKEY_LOCAL_MACHINE);
  EXPECT_EQ(registry.CheckAndOpenKeyForWrite(L"Software\\RO"), 1);
  chmod(m_registry.file("machine.hive").c_str(), 0444);
  m_registry.reopen();
  registry.Disconnect();
  registry.Connect(HKEY_LOCAL_MACHINE);
  EXPECT_EQ(registry.CheckAndOpenKeyForWrite(L"Software\\RO"), 0);
  EXPECT_EQ(registry.QueryInfo(), 1);
  EXPECT_EQ(registry.SetValue(L"v", L"x"), 0);
  EXPECT_EQ(registry.GetErrorCode(), 5);
}

// --- MRegKey ---

TEST_F(Keys, ProductKeysLieUnderTheThreeNames) {
  const auto path = [](MSoftKey key) {
    HKEY parent = nullptr;
    CStringW name;
    key.GetParams(parent, name);
    return std::wstring(name.GetString());
  };
  const std::wstring program = std::filesystem::read_symlink("/proc/self/exe").filename().wstring();
  EXPECT_EQ(path(MSoftKeyCU()), L"software\\!TestCompany\\" + program);
  MSoftKey::Init(L"Prod", L"1.0", L"Co");
  EXPECT_EQ(path(MSoftKeyCU(L"\\Paths\\")), L"software\\Co\\Prod\\1.0\\Paths");
  EXPECT_EQ(path(MSoftKeyCU()), L"software\\Co\\Prod\\1.0");
  EXPECT_EQ(path(MSoftKeyCU(L"\\\\")), L"software\\Co\\Prod\\1.0");
  MSoftKey::Init(L"Prod", nullptr, L"Co");
  EXPECT_EQ(path(MSoftKeyLM(L"Paths")), L"software\\Co\\Prod\\Paths");
  HKEY parent = nullptr;
  CStringW name;
  MRegKey(L"B", MRegKey(L"A\\", MRegKey(HKEY_CURRENT_USER, 0))).GetParams(parent, name);
  EXPECT_STREQ(name, L"A\\B");
}

TEST_F(Keys, ReadingMakesNothingWritingMakesAll) {
  MSoftKeyCU key(L"Deep\\er");
  CStringW text;
  EXPECT_FALSE(key.GetRegStr(L"v", text));
  EXPECT_EQ(key.GetLastError(), 2);
  EXPECT_TRUE(!key);
  EXPECT_EQ(key.GetRegDWORDD(L"v", 7), 7U);
  EXPECT_TRUE(key.SetRegStr(L"v", L"text"));
  EXPECT_TRUE(key.GetRegStr(L"V", text));
  EXPECT_STREQ(text, L"text");
  EXPECT_TRUE(key.DeleteValue(L"v"));
  EXPECT_TRUE(key.DeleteValue(L"v"));
  MRegKey nowhere;
  EXPECT_TRUE(!nowhere);
  EXPECT_EQ(nowhere.GetSubKeyName(0, text), 0);
  EXPECT_EQ(nowhere.SetRegDWORD(L"v", 1), 0);
  EXPECT_EQ(nowhere.GetLastError(), MRegKey::NO_HANDLE);
}

TEST_F(Keys, NumbersAreTextWithNothingBehind) {
  MSoftKeyCU key(L"N");
  long number = 77;
  std::uint32_t word = 0;
  ASSERT_TRUE(key.SetRegLong(L"n", -5));
  EXPECT_STREQ(key.GetRegStrD(L"n", L""), L"-5");
  EXPECT_FALSE(key.GetRegDWORD(L"n", word));
  EXPECT_EQ(key.GetLastError(), MRegKey::WRONG_FORM);
  struct {
    const wchar_t* text;
    long expected;  // 77: fails
  } const rows[] = {{L"12", 12},        {L" 12", 12}, {L"12 ", 77},
                    {L"", 77},          {L"x", 77},   {L"2147483647", 2147483647},
                    {L"2147483648", 77}};
  for (const auto& row : rows) {
    key.SetRegStr(L"n", row.text);
    EXPECT_EQ(key.GetRegLongD(L"n", 77), row.expected) << row.text;
  }
  ASSERT_TRUE(key.SetRegULong(L"n", 4294967295UL));
  EXPECT_EQ(key.GetRegULongD(L"n", 0), 4294967295UL);
  EXPECT_FALSE(key.GetRegLong(L"n", number));
  EXPECT_EQ(number, 77);
  EXPECT_EQ(key.GetRegIntD(L"n", 77), 77);
  ASSERT_TRUE(key.SetRegInt(L"n", -7));
  int small = 0;
  EXPECT_EQ(key.GetRegInt(L"n", small), 1);
  EXPECT_EQ(small, -7);
}

TEST_F(Keys, TextIsWrittenOnlyIfItDiffers) {
  MSoftKeyCU key(L"U");
  ASSERT_TRUE(key.UpdRegStr(L"v", L"Text"));
  ASSERT_TRUE(key.UpdRegStr(L"v", L"tEXT"));
  EXPECT_STREQ(key.GetRegStrD(L"v", L""), L"Text");
  EXPECT_TRUE(key.SetRegStrE(L"v", L""));
  EXPECT_STREQ(key.GetRegStrD(L"v", L"gone"), L"gone");
}

TEST_F(Keys, StructuresHaveOneSize) {
  MSoftKeyCU key(L"S");
  const std::uint8_t bytes[3] = {1, 2, 3};
  ASSERT_TRUE(key.SetRegStruct(L"s", bytes, 3));
  std::uint8_t read[4] = {9, 9, 9, 9};
  EXPECT_TRUE(key.GetRegStruct(L"s", nullptr, 3));
  EXPECT_EQ(key.GetLastError(), MRegKey::WRONG_STRUCT);
  EXPECT_FALSE(key.GetRegStruct(L"s", read, 4));
  EXPECT_EQ(key.GetLastError(), MRegKey::WRONG_STRUCT);
  EXPECT_EQ(read[0], 9);
  EXPECT_TRUE(key.GetRegStruct(L"s", read, 3));
  EXPECT_EQ(read[2], 3);
  std::uint8_t* data = nullptr;
  std::uint32_t size = 0;
  ASSERT_TRUE(key.GetRegBinary(L"s", data, size));
  EXPECT_EQ(std::string(data, data + size), "\1\2\3");
  delete[] data;
  CByteArray array;
  ASSERT_EQ(key.GetRegBinary(L"s", array), 1);
  EXPECT_TRUE(array.GetSize() == 3 && array[2] == 3);
  key.SetRegStr(L"s", L"text");
  EXPECT_EQ(key.GetRegBinary(L"s", array), 0);
  EXPECT_EQ(array.GetSize(), 0);
  EXPECT_FALSE(key.GetRegStruct(L"s", read, 3));
  EXPECT_EQ(key.GetLastError(), MRegKey::WRONG_STRUCT);
  EXPECT_FALSE(key.GetRegStruct(L"none", read, 3));
  EXPECT_EQ(key.GetLastError(), 2);
}

TEST_F(Keys, TreesAreDeletedButForTheFourOfTheClassesRoot) {
  MSoftKeyCU(L"Tree\\a\\b").Create();
  MSoftKeyCU(L"Tree\\c").Create();
  MSoftKeyCU product;
  CStringArray names;
  product.GetSubKeyNames(names);
  EXPECT_FALSE(product.DeleteSubKey(nullptr) || product.DeleteSubKey(L""));
  product.GetSubKeyNames(names);
  EXPECT_EQ(names.GetSize(), 1);
  EXPECT_TRUE(product.DeleteSubKey(L"Tree"));
  product.GetSubKeyNames(names);
  EXPECT_EQ(names.GetSize(), 0);
  EXPECT_FALSE(product.DeleteSubKey(L"Tree"));
  MRegKey classes(HKEY_CLASSES_ROOT, 0);
  MRegKey(L"CLSID\\{1}", classes).Create();
  EXPECT_FALSE(classes.DeleteSubKey(L"clsid"));
  EXPECT_FALSE(!MRegKey(L"CLSID\\{1}", classes));
  MRegKey(L".part", classes).Create();
  EXPECT_TRUE(classes.DeleteSubKey(L".part"));
  MRegKey clsid(L"CLSID", classes);
  EXPECT_TRUE(clsid.DeleteSubKey(L"{1}"));
}

TEST_F(Keys, CopiesShareTheHandleOfTheirSource) {
  auto source = std::make_unique<MSoftKeyCU>(L"C");
  source->SetRegDWORD(L"v", 1);
  MRegKey copy(*source);
  MRegKey same(L"", copy);
  EXPECT_EQ(copy.GetRegDWORDD(L"v", 0), 1U);
  EXPECT_EQ(static_cast<HKEY>(same), static_cast<HKEY>(copy));
  {
    MRegKey assigned, below(L"", copy);
    assigned = copy;
    assigned = static_cast<MRegKey&>(assigned);
    MSoftKeyCU other(*source);
    EXPECT_EQ(assigned.GetRegDWORDD(L"v", 0) + below.GetRegDWORDD(L"v", 0), 2U);
    EXPECT_EQ(other.GetRegDWORDD(L"v", 0), 1U);
  }
  EXPECT_EQ(copy.GetRegDWORDD(L"v", 0), 1U);  // none of them has closed it
  HKEY parent = nullptr;
  CStringW path;
  copy.GetParams(parent, path);
  EXPECT_EQ(path.Left(8), CStringW(L"software"));
  source.reset();
  EXPECT_EQ(copy.GetRegDWORDD(L"v", 0), 0U);
  EXPECT_EQ(copy.GetLastError(), 6);
}

TEST_F(Keys, SingleValuesHaveSizes) {
  int number = 42, read = 0;
  CStringW text;
  EXPECT_TRUE(CRegUtils::SaveRegKey(L"Software\\One", L"n", &number, sizeof number));
  EXPECT_TRUE(CRegUtils::LoadRegKey(L"Software\\One", L"n", &read, sizeof read));
  EXPECT_EQ(read, 42);
  EXPECT_FALSE(CRegUtils::LoadRegKey(L"Software\\One", L"n", &read, 2));
  EXPECT_TRUE(CRegUtils::SaveRegKey(L"Software\\One", L"t", L"\U0001F600"));
  EXPECT_EQ(CRegUtils::GetRegKeySize(L"Software\\One", L"t"), 6);  // two units and the zero
  EXPECT_TRUE(CRegUtils::LoadRegKey(L"Software\\One", L"t", text));
  EXPECT_FALSE(CRegUtils::LoadRegKey(L"Software\\One", L"none", text));
  EXPECT_FALSE(CRegUtils::LoadRegKey(L"Software\\None", L"t", text));
  EXPECT_TRUE(!MRegKey(L"Software\\None", MRegKey(HKEY_CURRENT_USER, 0)));  // and none is made
  EXPECT_STREQ(text, L"\U0001F600");
  EXPECT_TRUE(CRegUtils::SaveRegKey(L"Software\\One", L"e", &number, 0));
  EXPECT_EQ(CRegUtils::GetRegKeySize(L"Software\\One", L"e"), 0);
  EXPECT_EQ(CRegUtils::GetRegKeySize(L"Software\\One", L"none"), -1);
  EXPECT_EQ(CRegUtils::GetRegKeySize(L"Software\\None", L"n"), -1);
}

}  // namespace
