#pragma once
// A registry, services and FIFOs of a test's own, and a service that it leads step by step.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/services_internal.h"
#include "qelbase/platform/CNTServiceMgr.h"

#include "tests/support/RegistryFolder.h"

namespace qeltest {

using namespace qel::sys;

class ServiceTest : public testing::Test {
 protected:
  ServiceTest() {
    setenv("QEL_REGISTRY", folder().c_str(), 1);
    for (const char* fifo : {"told", "asked"}) mkfifo((folder() + "/" + fifo).c_str(), 0600);
    m_told = Descriptor::open(folder() + "/told", O_RDWR);
    m_asked = Descriptor::open(folder() + "/asked", O_RDWR);
    m_manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
  }
  ~ServiceTest() override {
    services::ForEachRecord([](const std::wstring& name, const services::Record&) {
      DWORD code = 0;
      const auto file = services::StatusFile::open(name, false, code);
      if (const auto run = file ? file->lastRun() : std::nullopt) services::Kill(run->process);
      return true;
    });
    CloseServiceHandle(m_manager);
    unsetenv("QEL_REGISTRY");
  }

  std::string folder() const { return m_registry.folder().path().string(); }

  static std::wstring program(const std::wstring& arguments) {
    return L"\"" SERVICE_PROGRAM_W L"\" " + arguments;
  }
  std::wstring led(const std::wstring& mode) const {
    return program(mode + L" \"" + m_registry.folder().path().wstring() + L"\"");
  }

  SC_HANDLE create(const wchar_t* name, const std::wstring& path, DWORD start = 3,
                   const wchar_t* dependencies = nullptr) const {
    return CreateServiceW(m_manager, name, nullptr, SERVICE_ALL_ACCESS, 16, start, 1, path.c_str(),
                          nullptr, nullptr, dependencies, nullptr, nullptr);
  }
  SC_HANDLE open(const wchar_t* name, DWORD access = SERVICE_ALL_ACCESS) const {
    return OpenServiceW(m_manager, name, access);
  }

  // The code of a call that gives 1 or 0.
  static DWORD codeOf(BOOL result) { return result ? 0 : qel::sys::GetLastError(); }
  static DWORD start(SC_HANDLE service) { return codeOf(StartServiceW(service, 0, nullptr)); }
  static DWORD control(SC_HANDLE service, DWORD code) {
    SERVICE_STATUS status{};
    return codeOf(ControlService(service, code, &status));
  }
  static SERVICE_STATUS statusOf(SC_HANDLE service) {
    SERVICE_STATUS status{};
    EXPECT_EQ(codeOf(QueryServiceStatus(service, &status)), 0U);
    return status;
  }
  static DWORD stateOf(SC_HANDLE service) { return statusOf(service).dwCurrentState; }
  static void awaitState(SC_HANDLE service, DWORD state) {
    while (stateOf(service) != state) sched_yield();
  }

  // The next line of the service; "" if none comes.
  std::string line() const {
    std::string text;
    for (char c = 0; text.empty() || c != '\n';) {
      pollfd ready{.fd = m_told.get(), .events = POLLIN, .revents = 0};
      if (poll(&ready, 1, 60'000) != 1 || read(m_told.get(), &c, 1) != 1) return "";
      if (c != '\n') text.push_back(c);
    }
    return text;
  }
  // Has the service report, and gives what it says of that.
  std::string ask(char step) const {
    EXPECT_EQ(write(m_asked.get(), &step, 1), 1);
    return line();
  }
  // The process that the service told itself to be, at the start of a led one.
  pid_t pidOf(const std::string& self) const { return std::atoi(self.c_str() + 5); }

  RegistryFolder m_registry;
  Descriptor m_told, m_asked;
  SC_HANDLE m_manager = nullptr;
};

}  // namespace qeltest
