// Facts of the process: environment, modules, clocks, debugger.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/ptrace.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "qelbase/outside/system/clock.h"
#include "qelbase/outside/system/debug.h"
#include "qelbase/outside/system/environment.h"
#include "qelbase/outside/system/environment_internal.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/files.h"
#include "qelbase/outside/system/modules.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/syscalls_internal.h"

#include "tests/support/FaultyCalls.h"
#include "tests/support/TempFolder.h"

namespace {

namespace fs = std::filesystem;
using namespace qel::sys;

// --- environment -------------------------------------------------------------------------------

class Environment : public testing::Test {
 protected:
  void SetUp() override {
    for (const char* name : {"TMP", "TEMP", "TMPDIR"}) {
      const char* value = std::getenv(name);
      before.push_back(value ? std::optional<std::string>(value) : std::nullopt);
    }
  }
  void TearDown() override {
    std::size_t i = 0;
    for (const char* name : {"TMP", "TEMP", "TMPDIR"}) set(name, before[i++]);
  }
  static void set(const char* name, const std::optional<std::string>& value) {
    if (value) {
      setenv(name, value->c_str(), 1);
    } else {
      unsetenv(name);
    }
  }
  static std::string real(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "unset";
  }
  static std::wstring text(const wchar_t* name) {
    return EnvironmentValue(name).value_or(L"unset");
  }
  static std::wstring tempPath() {
    std::array<wchar_t, MAX_PATH> path{};
    return {path.data(), GetTempPathW(MAX_PATH, path.data())};
  }
  std::vector<std::optional<std::string>> before;
};

TEST_F(Environment, TemporaryFolderIsNativeOutsideAndAWindowsPathInside) {
  EXPECT_EQ(_wputenv(L"TMP=C:\\srv\\tmp\\x\\"), 0);
  EXPECT_EQ(real("TMP"), "/srv/tmp/x/");
  EXPECT_EQ(real("TMPDIR"), "/srv/tmp/x/");
  EXPECT_EQ(text(L"TMP"), L"C:\\srv\\tmp\\x\\");
  EXPECT_EQ(tempPath(), L"C:\\srv\\tmp\\x\\");
  EXPECT_EQ(_wputenv(L"TEMP=C:/other"), 0);
  EXPECT_EQ(real("TEMP"), "/other");
  EXPECT_EQ(_wputenv(L"TMP="), 0);
  EXPECT_EQ(real("TMP"), "unset");
  EXPECT_EQ(real("TMPDIR"), "unset");
  EXPECT_EQ(tempPath(), L"C:\\other\\");
  EXPECT_EQ(_wputenv(L"TEMP="), 0);
  EXPECT_EQ(tempPath(), L"C:\\tmp\\");
  EXPECT_EQ(_wputenv(L"TMP=Z:\\x"), -1);
  EXPECT_EQ(real("TMP"), "unset");
}

TEST_F(Environment, MissingTemporaryFoldersAreSupplied) {
  struct Row {
    std::optional<std::string> tmp, temp, tmpdir;
    std::string expected_tmp, expected_temp;
  };
  const std::optional<std::string> none;
  const std::vector<Row> rows = {
      {none, none, none, "/tmp", "/tmp"},      {none, none, "/usr", "/usr", "/usr"},
      {"/var", none, "/usr", "/var", "/var"},  {none, "/var", none, "/var", "/var"},
      {"/usr", "/var", none, "/usr", "/var"},  {"", none, "/surely/not", "/tmp", "/tmp"},
      {none, none, "relative", "/tmp", "/tmp"}};
  for (const Row& row : rows) {
    set("TMP", row.tmp);
    set("TEMP", row.temp);
    set("TMPDIR", row.tmpdir);
    SupplyTemporaryFolder();
    EXPECT_EQ(real("TMP"), row.expected_tmp);
    EXPECT_EQ(real("TEMP"), row.expected_temp);
  }
}

TEST_F(Environment, VariablesAreFoundWithoutRegardToCase) {
  EXPECT_EQ(_wputenv(L"Qel_Test=a=\u00E4"), 0);
  EXPECT_EQ(real("Qel_Test"), "a=\xC3\xA4");
  EXPECT_EQ(text(L"QEL_TEST"), L"a=\u00E4");
  EXPECT_EQ(_wputenv(L"QEL_TEST=C:\\x"), 0);
  EXPECT_EQ(real("Qel_Test"), "C:\\x");
  std::array<wchar_t, 5> buffer{};
  EXPECT_EQ(GetEnvironmentVariableW(L"qel_test", buffer.data(), 5), 4);
  EXPECT_EQ(std::wstring(buffer.data()), L"C:\\x");
  EXPECT_EQ(GetEnvironmentVariableW(L"qel_test", buffer.data(), 4), 5);
  EXPECT_EQ(_wputenv(L"qel_test="), 0);
  EXPECT_EQ(GetEnvironmentVariableW(L"Qel_Test", buffer.data(), 5), 0);
  EXPECT_EQ(GetLastError(), 203);
  EXPECT_EQ(_wputenv(L"=x"), -1);
  EXPECT_EQ(_wputenv(L"qel_test"), -1);
}

// --- modules -----------------------------------------------------------------------------------

std::wstring fileOf(HMODULE module, DWORD size = 4096) {
  std::wstring text(4096, L'#');
  const DWORD length = GetModuleFileNameW(module, text.data(), size);
  return text.substr(0, length);
}

fs::path nativeFileOf(HMODULE module) {
  std::string native;
  EXPECT_TRUE(ToNative(fileOf(module), native));
  return native;
}

TEST(Modules, ProgramAndLibrariesTellTheirFiles) {
  const std::wstring program = FromNative(fs::read_symlink("/proc/self/exe").string());
  EXPECT_EQ(fileOf(nullptr), program);
  EXPECT_EQ(fileOf(GetModuleHandleW(nullptr)), program);
  const HMODULE c_library = GetModuleHandleW(L"LIBC.so.6");
  ASSERT_NE(c_library, nullptr);
  EXPECT_NE(c_library, GetModuleHandleW(nullptr));
  EXPECT_EQ(nativeFileOf(c_library).filename(), "libc.so.6");
  EXPECT_TRUE(fs::exists(nativeFileOf(c_library)));
  EXPECT_EQ(GetModuleHandleW(L"c"), c_library);  // c.dll
  EXPECT_EQ(GetModuleHandleW(L"C.DLL"), c_library);
  EXPECT_EQ(GetModuleHandleW(fileOf(c_library).c_str()), c_library);
  for (const wchar_t* name : {L"surely-not", L"libc", L"C:\\libc.so.6", L"", L"Z:\\x.so"}) {
    EXPECT_EQ(GetModuleHandleW(name), nullptr);
    EXPECT_EQ(GetLastError(), 126);
  }
  EXPECT_EQ(fileOf(reinterpret_cast<HMODULE>(0x1000)), L"");
  EXPECT_EQ(GetLastError(), 126);
}

TEST(Modules, FileNamesAreCutToTheBuffer) {
  const std::wstring whole = fileOf(nullptr);
  const auto length = static_cast<DWORD>(whole.size());
  std::wstring text(length + 2, L'#');
  EXPECT_EQ(GetModuleFileNameW(nullptr, text.data(), length + 1), length);
  EXPECT_EQ(text, whole + L'\0' + L'#');
  text.assign(length + 2, L'#');
  SetLastError(0);
  EXPECT_EQ(GetModuleFileNameW(nullptr, text.data(), length), length);
  EXPECT_EQ(GetLastError(), 122);
  EXPECT_EQ(text, whole.substr(0, length - 1) + L'\0' + L"##");
  EXPECT_EQ(GetModuleFileNameW(nullptr, nullptr, 0), 0);
}

TEST(Modules, LibraryLoadedByARelativeNameTellsItsAbsoluteFile) {
  const qeltest::TempFolder folder;
  const HMODULE any = GetModuleHandleW(L"libgcc_s.so.1");
  ASSERT_NE(any, nullptr);
  fs::copy_file(nativeFileOf(any), folder / "libqelcopy.so");
  const fs::path before = fs::current_path();
  fs::current_path(folder.path());
  void* loaded = dlopen("./libqelcopy.so", RTLD_NOW | RTLD_LOCAL);
  fs::current_path(before);
  ASSERT_NE(loaded, nullptr) << dlerror();
  const HMODULE module = GetModuleHandleW(L"qelcopy");
  EXPECT_EQ(fileOf(module), FromNative(fs::canonical(folder / "libqelcopy.so").string()));
  fs::remove(folder / "libqelcopy.so");
  EXPECT_EQ(fileOf(module), folder.wide("libqelcopy.so"));
  dlclose(loaded);
  EXPECT_EQ(GetModuleHandleW(L"qelcopy"), nullptr);
  EXPECT_EQ(fileOf(module), L"");
}

TEST(Modules, ReplacedProgramStillTellsItsFile) {
  const SystemCalls original = Calls();
  Calls().readlink = [](const char*, char* out, size_t size) {
    return static_cast<ssize_t>(std::string("/opt/qel/part viewer (deleted)").copy(out, size));
  };
  EXPECT_EQ(fileOf(nullptr), L"C:\\opt\\qel\\part viewer");
  Calls() = original;
}

// --- clocks ------------------------------------------------------------------------------------

TEST(Clocks, ShowWhatWasSetAndMoveWithSleep) {
  ClockOverride clocks;
  clocks.setClock(0x7FFFFFFF)
      .setTickCount(0xFFFFFFFF)
      .setTime(1'700'000'000)
      .setPerformanceCounter(5);
  EXPECT_EQ(qel::sys::clock(), 0x7FFFFFFF);
  EXPECT_EQ(GetTickCount(), 0xFFFFFFFF);
  Sleep(1000);
  EXPECT_EQ(qel::sys::clock(), -1);
  EXPECT_EQ(GetTickCount(), 999);
  std::int64_t seconds = 0;
  EXPECT_EQ(_time64(&seconds), 1'700'000'001);
  EXPECT_EQ(seconds, 1'700'000'001);
  LONGLONG counter = 0;
  LONGLONG frequency = 0;
  EXPECT_EQ(QueryPerformanceCounter(&counter) + QueryPerformanceFrequency(&frequency), 2);
  EXPECT_EQ(counter, 5 + frequency);
  {
    ClockOverride inner;
    inner.setTickCount(7);
    EXPECT_EQ(GetTickCount(), 7);
    EXPECT_NE(_time64(nullptr), 1'700'000'001);  // the inner one sets no time
  }
  EXPECT_EQ(GetTickCount(), 999);
}

TEST(Clocks, LocalTimeFollowsTheZone) {
  ClockOverride clocks;
  clocks.setTime(951'782'400).setZone(-3600);  // 2000-02-29 00:00 UTC
  const std::tm west = LocalTime();
  EXPECT_EQ(west.tm_mday, 28);
  EXPECT_EQ(west.tm_hour, 23);
  EXPECT_EQ(west.tm_year, 100);
}

TEST(Clocks, RealOnesAgreeWithTheSystem) {
  timespec boot{};
  clock_gettime(CLOCK_BOOTTIME, &boot);
  const DWORD before = static_cast<DWORD>(boot.tv_sec * 1000 + boot.tv_nsec / 1'000'000);
  const LONG start = qel::sys::clock();
  Sleep(3);
  EXPECT_GE(qel::sys::clock() - start, 2);
  EXPECT_GE(GetTickCount() - before, 3);
  EXPECT_LT(GetTickCount() - before, 600'000);
}

// --- debugger ----------------------------------------------------------------------------------

TEST(Debugger, OutputGoesToTheSinkOrToStandardError) {
  std::wstring seen;
  SetDebugSink([&](std::wstring_view text) { seen += text; });
  OutputDebugStringW(L"a \u00E4\n");
  OutputDebugStringW(nullptr);
  SetDebugSink({})(L"given back");
  EXPECT_EQ(seen, L"a \u00E4\ngiven back");
  testing::internal::CaptureStderr();
  OutputDebugStringW(L"b \u00E4\n");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "b \xC3\xA4\n");
}

TEST(Debugger, PresenceIsWhatTheKernelOrAnOverrideSays) {
  const qeltest::ChildEnd traced = qeltest::runInChild([] {
    EXPECT_FALSE(IsDebuggerPresent());
    const bool is_traced = ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0;
    EXPECT_EQ(IsDebuggerPresent(), is_traced);
  });
  EXPECT_EQ(traced.exit_code, 0);
  const DebuggerOverride present(true);
  EXPECT_TRUE(IsDebuggerPresent());
  const DebuggerOverride absent(false);
  EXPECT_FALSE(IsDebuggerPresent());
}

}  // namespace
