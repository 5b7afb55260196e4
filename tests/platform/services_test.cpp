// Records, masks, refusals and texts of services; nothing runs here.
#include <sys/wait.h>

#include <thread>
#include <vector>

#include "qelbase/outside/framework/CResourceException.h"
#include "qelbase/outside/system/handles.h"
#include "qelbase/outside/system/text.h"
#include "qelbase/platform/CServiceStatus.h"

#include "tests/platform/services_support.h"

using namespace qeltest;

namespace {

// A value's bytes as the registry gives them, text as UTF-8 with a bar for each zero; "-" for none.
std::string valueOf(const wchar_t* service, const wchar_t* name) {
  const std::wstring path = std::wstring(L"System\\CurrentControlSet\\Services\\") + service;
  HKEY key = nullptr;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, &key) != 0) return "no key";
  DWORD type = 0, size = 0;
  std::string data;
  if (RegQueryValueExW(key, name, nullptr, &type, nullptr, &size) == 0) {
    data.resize(size);
    RegQueryValueExW(key, name, nullptr, &type, data.data(), &size);
  }
  RegCloseKey(key);
  if (type == 0) return "-";
  if (type == REG_DWORD) return "4 " + std::to_string(*reinterpret_cast<DWORD*>(data.data()));
  std::string text = Narrow(FromUtf16Le(data), CP_UTF8);
  for (char& c : text) c = c == 0 ? '|' : c;
  return std::to_string(type) + " " + text;
}

using Services = ServiceTest;

TEST_F(Services, AreRecordedWhereTheSystemKeepsThem) {
  CNTServiceMgr manager(L"Cl\u00f6ck \U0001F570");
  const wchar_t dependencies[] = L"Net\0Disk\0";
  ASSERT_EQ(manager.RegisterService(L"\"C:\\a b\\\u00e9%x\" -q", L"Sh\u00f6wn \"name\"", 1, 1,
                                    dependencies, L"line\r\n\u65e5\u672c"),
            1);
  const std::pair<const wchar_t*, const char*> values[] = {
      {L"Type", "4 272"},
      {L"Start", "4 2"},
      {L"ErrorControl", "4 1"},
      {L"ImagePath", "2 \"C:\\a b\\\u00e9%x\" -q|"},
      {L"DisplayName", "1 Sh\u00f6wn \"name\"|"},
      {L"Description", "1 line\r\n\u65e5\u672c|"},
      {L"DependOnService", "7 Net|Disk||"},
      {L"DeleteFlag", "-"}};
  for (const auto& [name, expected] : values) {
    EXPECT_EQ(valueOf(L"CL\u00d6CK \U0001F570", name), expected);  // without regard to case
  }
  CNTServiceMgr bare(L"bare");
  ASSERT_EQ(bare.RegisterService(L"C:\\x", L"Bare one", 0, 0, nullptr, nullptr), 1);
  EXPECT_EQ(valueOf(L"bare", L"Type"), "4 16");
  EXPECT_EQ(valueOf(L"bare", L"Start"), "4 3");
  EXPECT_EQ(valueOf(L"bare", L"Description"), "-");
  EXPECT_EQ(valueOf(L"bare", L"DependOnService"), "-");
  // All of that again from a file that another process reads.
  m_registry.reopen();
  EXPECT_EQ(valueOf(L"bare", L"DisplayName"), "1 Bare one|");
}

TEST_F(Services, KeepTheirDescriptionUnlessTheyAreGivenAnother) {
  const SC_HANDLE service = create(L"s", L"C:\\x");
  const auto describe = [&](const wchar_t* text) {
    const SERVICE_DESCRIPTIONW info{text};
    EXPECT_EQ(codeOf(ChangeServiceConfig2W(service, 1, &info)), 0U);
    return valueOf(L"s", L"Description");
  };
  EXPECT_EQ(describe(L"a"), "1 a|");
  EXPECT_EQ(describe(nullptr), "1 a|");
  EXPECT_EQ(describe(L""), "-");
  EXPECT_EQ(codeOf(ChangeServiceConfig2W(service, 2, nullptr)), 124U);
  CloseServiceHandle(service);
}

TEST_F(Services, RefuseWithTheSystemsCodes) {
  const SC_HANDLE service = create(L"taken", L"C:\\x");
  ASSERT_NE(service, nullptr);
  const SC_HANDLE weak = OpenSCManagerW(nullptr, nullptr, 1);
  const SC_HANDLE reader = open(L"taken", GENERIC_READ);
  const SC_HANDLE closed = open(L"taken", GENERIC_READ);
  CloseServiceHandle(closed);
  const std::wstring long_name(256, L'n');
  SERVICE_STATUS status{};
  const auto isNull = [](SC_HANDLE handle) { return handle ? 0 : qel::sys::GetLastError(); };
  const auto createWith = [&](DWORD type, DWORD start_type, const wchar_t* name,
                              const wchar_t* display, const wchar_t* account = nullptr,
                              const wchar_t* dependencies = nullptr) {
    return isNull(CreateServiceW(m_manager, name, display, 1, type, start_type, 1, L"x", nullptr,
                                 nullptr, dependencies, account, nullptr));
  };
  const struct {
    const char* what;
    DWORD expected;
    DWORD seen;
  } rows[] = {
      {"database", 1065, isNull(OpenSCManagerW(nullptr, L"ServicesFailed", 1))},
      {"machine", 1722, isNull(OpenSCManagerW(L"\\\\elsewhere", nullptr, 1))},
      {"no such right", 5, isNull(OpenSCManagerW(nullptr, nullptr, 0x40))},
      {"missing", 1060, isNull(open(L"missing"))},
      {"empty name", 123, isNull(open(L""))},
      {"slash", 123, isNull(open(L"a/b"))},
      {"backslash", 123, isNull(open(L"taken\\Parameters"))},
      {"long name", 123, isNull(open(long_name.c_str()))},
      {"service as manager", 6, isNull(OpenServiceW(service, L"taken", 1))},
      {"weak manager", 5,
       isNull(CreateServiceW(weak, L"n", nullptr, 1, 16, 3, 1, L"x", nullptr, nullptr, nullptr,
                             nullptr, nullptr))},
      {"taken", 1073, createWith(16, 3, L"TAKEN", L"other")},
      {"display name is a service's", 1078, createWith(16, 3, L"n", L"Taken")},
      {"driver", 87, createWith(1, 3, L"n", L"n")},
      {"start type", 87, createWith(16, 5, L"n", L"n")},
      {"account", 1057, createWith(16, 3, L"n", L"n", L".\\somebody")},
      {"itself", 1059, createWith(16, 3, L"n", L"n", nullptr, L"N\0")},
      {"group", 87, createWith(16, 3, L"n", L"n", nullptr, L"+group\0")},
      {"reader starts", 5, start(reader)},
      {"reader stops", 5, control(reader, 1)},
      {"reader deletes", 5, codeOf(DeleteService(reader))},
      {"reader describes", 5, codeOf(ChangeServiceConfig2W(reader, 1, nullptr))},
      {"reader interrogates", 1062, control(reader, 4)},
      {"shutdown", 87, control(service, 5)},
      {"undefined control", 87, control(service, 11)},
      {"stopped", 1062, control(service, 1)},
      {"closed", 6, codeOf(QueryServiceStatus(closed, &status))},
      {"closed twice", 6, codeOf(CloseServiceHandle(closed))},
      {"invented", 6, codeOf(QueryServiceStatus(reinterpret_cast<SC_HANDLE>(&status), &status))},
      {"null", 6, codeOf(DeleteService(nullptr))},
      {"no status handle", 6, codeOf(SetServiceStatus(nullptr, &status))},
      {"handler outside of a dispatcher", 1083,
       RegisterServiceCtrlHandlerW(L"", [](DWORD) {}) ? 0 : qel::sys::GetLastError()},
      {"empty table", 13, codeOf(StartServiceCtrlDispatcherW(nullptr))},
  };
  for (const auto& row : rows) EXPECT_EQ(row.seen, row.expected) << row.what;
  const SERVICE_TABLE_ENTRYW table[] = {{L"", [](DWORD, wchar_t**) {}}, {nullptr, nullptr}};
  EXPECT_EQ(codeOf(StartServiceCtrlDispatcherW(table)), 1063U);  // not started as a service
  setenv("QEL_SERVICE", "taken", 1);
  EXPECT_EQ(codeOf(StartServiceCtrlDispatcherW(table)), 1063U);  // nor by telling lies
  unsetenv("QEL_SERVICE");
  for (const SC_HANDLE handle : {weak, reader, service}) EXPECT_TRUE(CloseServiceHandle(handle));
}

TEST_F(Services, MapGenericMasksAndRefuseChangesOfAReadOnlyRegistry) {
  CloseServiceHandle(create(L"s", L"C:\\missing"));
  const SC_HANDLE runner = open(L"s", GENERIC_EXECUTE);
  EXPECT_EQ(start(runner), 3U);
  EXPECT_EQ(control(runner, 1), 1062U);
  SERVICE_STATUS status{};
  EXPECT_EQ(codeOf(QueryServiceStatus(runner, &status)), 5U);
  CloseServiceHandle(runner);
  const SC_HANDLE writer = open(L"s", GENERIC_WRITE);
  EXPECT_EQ(codeOf(ChangeServiceConfig2W(writer, 1, nullptr)), 0U);
  EXPECT_EQ(start(writer), 5U);
  CloseServiceHandle(writer);

  m_registry.reopen();
  chmod(m_registry.file("machine.hive").c_str(), 0444);
  chmod(folder().c_str(), 0555);
  EXPECT_EQ(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS), nullptr);
  EXPECT_EQ(qel::sys::GetLastError(), 5U);
  EXPECT_EQ(open(L"s", DELETE_ACCESS), nullptr);
  EXPECT_EQ(qel::sys::GetLastError(), 5U);
  const SC_HANDLE all = open(L"s", MAXIMUM_ALLOWED);
  EXPECT_EQ(stateOf(all), 1U);
  EXPECT_EQ(codeOf(DeleteService(all)), 5U);
  CloseServiceHandle(all);
  CNTServiceMgr failed(L"s");
  EXPECT_TRUE(!failed);
  EXPECT_EQ(failed.GetLastError(), 5U);
  EXPECT_EQ(failed.StartServiceW(true) + failed.StopService(), 0);
  EXPECT_EQ(failed.RegisterService(L"x", L"x", 0, 0, nullptr, nullptr), 0);
  chmod(folder().c_str(), 0700);
  chmod(m_registry.file("machine.hive").c_str(), 0600);
}

TEST_F(Services, AreInstalledThoughTheyMayNotBeOpened) {
  CNTServiceMgr manager(L"s");
  EXPECT_EQ(manager.IsInstalled(), 0);
  EXPECT_EQ(manager.GetLastError(), 1060U);
  EXPECT_EQ(manager.UnregisterService(), 1);
  EXPECT_EQ(manager.StopService(), 0);
  EXPECT_EQ(manager.GetLastError(), 1060U);
  ASSERT_EQ(manager.RegisterService(L"x", L"x", 0, 0, nullptr, nullptr), 1);
  EXPECT_EQ(manager.IsInstalled(), 1);
  EXPECT_EQ(manager.StopService(), 1);
  EXPECT_EQ(manager.GetLastError(), 1062U);
  // Somebody else's folder: what runs can't be seen.
  std::filesystem::rename(m_registry.file("services"), m_registry.file("was"));
  writeBytes(m_registry.file("services"), "");
  EXPECT_EQ(manager.IsInstalled(), 1);
  EXPECT_EQ(manager.GetLastError(), 5U);
  EXPECT_EQ(manager.IsInstalledAndRunning(), 0);
  std::filesystem::remove(m_registry.file("services"));
}

TEST_F(Services, GoWithTheLastHandleOfWhateverProcess) {
  const SC_HANDLE first = create(L"s", L"C:\\x");
  const SC_HANDLE second = open(L"s");
  EXPECT_EQ(codeOf(DeleteService(first)), 0U);
  EXPECT_EQ(codeOf(DeleteService(second)), 1072U);
  EXPECT_EQ(start(second), 1072U);
  EXPECT_EQ(codeOf(ChangeServiceConfig2W(second, 1, nullptr)), 1072U);
  CNTServiceMgr manager(L"s");
  EXPECT_EQ(manager.UnregisterService(), 0);
  EXPECT_EQ(manager.GetLastError(), 1072U);
  EXPECT_EQ(create(L"S", L"C:\\y"), nullptr);
  EXPECT_EQ(qel::sys::GetLastError(), 1072U);
  CloseServiceHandle(first);
  EXPECT_EQ(stateOf(second), 1U);
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t other = fork();  // has the second handle, and opens one of its own
  if (other == 0) {
    const bool opened = OpenServiceW(m_manager, L"s", GENERIC_READ) != nullptr;
    if (write(ready[1], &opened, 1) == 1) pause();
    _exit(0);
  }
  bool opened = false;
  ASSERT_EQ(read(ready[0], &opened, 1), 1);
  EXPECT_TRUE(opened);
  CloseServiceHandle(second);
  EXPECT_EQ(valueOf(L"s", L"DeleteFlag"), "4 1");
  kill(other, SIGKILL);
  waitpid(other, nullptr, 0);
  EXPECT_EQ(open(L"s"), nullptr);
  EXPECT_EQ(qel::sys::GetLastError(), 1060U);
  EXPECT_EQ(valueOf(L"s", L"ImagePath"), "no key");
  EXPECT_TRUE(CloseServiceHandle(create(L"s", L"C:\\y")));  // the name is free again
  for (const int end : ready) close(end);
}

TEST_F(Services, TellDamagedStatusFilesFromNewOnes) {
  CloseServiceHandle(create(L"s", L"C:\\x"));
  const auto file = m_registry.file("services") / services::StatusName(L"S");
  ASSERT_TRUE(std::filesystem::exists(file));
  const std::string whole = readBytes(file);
  writeBytes(file, whole.substr(0, 100));  // its maker died
  const SC_HANDLE service = open(L"s");
  EXPECT_EQ(statusOf(service).dwWin32ExitCode, 1077U);
  CloseServiceHandle(service);
  std::string other = whole;
  other[0] = 'x';
  writeBytes(file, other);
  EXPECT_EQ(open(L"s"), nullptr);
  EXPECT_EQ(qel::sys::GetLastError(), 13U);
  // Process ids that would be groups, or everybody, to the kernel.
  for (const std::uint32_t id : {0U, 0xFFFFFFFFU, 0x80000001U}) {
    services::Process process = services::ThisProcess();
    EXPECT_TRUE(services::IsAlive(process));
    process.id = id;
    EXPECT_FALSE(services::IsAlive(process));
  }
  services::Process later = services::ThisProcess();
  ++later.started;
  services::Kill(later);  // not this process
}

TEST(ServiceCommandLines, AreTakenApartAsTheSystemDoes) {
  const TempFolder folder;
  for (const char* name : {"a", "a b", "tool.exe", "\xc3\xa9"}) writeBytes(folder / name, "");
  std::filesystem::create_directory(folder / "a b c");
  const std::string base = folder.path().string();
  setenv("QEL_TEST_FOLDER", folder.path().c_str(), 1);
  const std::wstring wide = folder.wide();
  const struct {
    std::wstring line;  // @ is the folder
    DWORD code;
    std::string program;  // in the folder
    std::vector<std::string> arguments;
  } rows[] = {
      {L"@\\a", 0, "a", {}},
      {L"  @\\a  x\ty ", 0, "a", {"x", "y"}},
      {L"@\\a b c", 0, "a", {"b", "c"}},  // the first that is a file
      {L"\"@\\a b\" c", 0, "a b", {"c"}},
      {L"\"@\\a b\"c", 0, "a b", {"c"}},
      {L"\"@\\a b", 0, "a b", {}},
      {L"\"@\\a b c\"", 5, "", {}},
      {L"@\\tool -q", 0, "tool.exe", {"-q"}},
      {L"@\\\u00e9 \u00e9", 0, "\xc3\xa9", {"\xc3\xa9"}},
      {L"%QEL_TEST_FOLDER%/a %no% 100%", 0, "a", {"%no%", "100%"}},
      {L"@\\missing x", 3, "", {}},
      {L"a", 3, "", {}},
      {L"", 3, "", {}},
      {L"\"", 3, "", {}},
      {L"@\\a \"x y\" z\"1 2\"z", 0, "a", {"x y", "z1 2z"}},
      {L"@\\a \"\" x", 0, "a", {"", "x"}},
      {L"@\\a \"a\\\\b\\\\\" c", 0, "a", {"a\\\\b\\", "c"}},
      {L"@\\a a\\\\\\\"b c\\d\\", 0, "a", {"a\\\"b", "c\\d\\"}},
      {L"@\\a \"a\"\"b\" c", 0, "a", {"a\"b", "c"}},
      {L"@\\a \"a\\\" b", 0, "a", {"a\" b"}},
  };
  for (const auto& row : rows) {
    std::wstring line = row.line;
    if (const auto at = line.find(L'@'); at != std::wstring::npos) line.replace(at, 1, wide);
    services::CommandLine seen;
    EXPECT_EQ(services::ParseCommandLine(line, seen), row.code) << Narrow(line);
    EXPECT_EQ(seen.program, row.code ? "" : base + "/" + row.program) << Narrow(line);
    EXPECT_EQ(seen.arguments, row.arguments) << Narrow(line);
  }
  unsetenv("QEL_TEST_FOLDER");
}

TEST(CServiceStatus, ReportsNothingWithoutAHandleAndNeedsALock) {
  CServiceStatus status;
  EXPECT_TRUE(!status);
  EXPECT_EQ(status.ReportStatusToSCMgr(SERVICE_RUNNING, 0, 0), 0);
  EXPECT_EQ(status.GetCurrentState(), SERVICE_STOPPED);
  status.Attach(reinterpret_cast<SERVICE_STATUS_HANDLE>(&status));  // nobody's
  EXPECT_EQ(status.ReportStatusToSCMgr(SERVICE_RUNNING, 0, 0), 0);
  EXPECT_EQ(status.GetCurrentState(), SERVICE_RUNNING);
  // The thread sanitizer sees whether both are safe at once.
  std::thread other([&] { status.ReportStatusToSCMgr(SERVICE_START_PENDING, 0, 0); });
  status.ReportStatusToSCMgr(SERVICE_START_PENDING, 0, 0);
  other.join();

  const SystemCalls before = Calls();
  Calls().mutex_init = [](pthread_mutex_t*, const pthread_mutexattr_t*) { return ENOMEM; };
  try {
    const CServiceStatus none;
    ADD_FAILURE() << "made without a lock";
  } catch (CResourceException* exception) {
    EXPECT_EQ(exception->m_lOsError, 8);
    exception->Delete();
  }
  Calls() = before;
}

TEST(CSingleLock, HoldsItsSectionOnceAgainstOtherThreads) {
  CCriticalSection section;
  const auto elsewhere = [&] {
    BOOL got = 0;
    std::thread([&] {
      got = section.Lock(0);
      if (got) section.Unlock();
    }).join();
    return got;
  };
  {
    CSingleLock lock(&section);
    EXPECT_TRUE(elsewhere());
    EXPECT_TRUE(lock.Lock() && lock.Lock());  // taken once
    EXPECT_FALSE(elsewhere());
    EXPECT_TRUE(lock.Unlock());
    EXPECT_TRUE(elsewhere());
    section.Lock();
    lock.Lock();
  }
  EXPECT_FALSE(elsewhere());  // the owner's own lock is left
  EXPECT_TRUE(section.Unlock());
  EXPECT_TRUE(elsewhere());
#ifndef __SANITIZE_THREAD__  // which ends the program here
  EXPECT_FALSE(section.Unlock());
#endif
}

}  // namespace
