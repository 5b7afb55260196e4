#pragma once
// What the calls of services.h are made of: records in the registry, status files, processes.

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "qelbase/outside/system/clock.h"
#include "qelbase/outside/system/descriptor_internal.h"
#include "qelbase/outside/system/registry.h"
#include "qelbase/outside/system/services.h"

namespace qel::sys::services {

// --- records in the registry -------------------------------------------------------------------

inline constexpr std::size_t kLongestName = 255;         // as a key's
inline constexpr std::size_t kLongestDisplayName = 256;  //

struct Record {
  DWORD type = 0;
  DWORD start = 0;
  DWORD error_control = 0;
  std::wstring path;  // a command line
  std::wstring display_name;
  std::vector<std::wstring> dependencies;
  bool marked = false;  // for deletion
};

[[nodiscard]] bool IsServiceName(std::wstring_view name);

// All give 0 or a code. A key that is no whole record, left by a process that died while it made or
// deleted one, counts as missing (1060).
[[nodiscard]] DWORD ReadRecord(const std::wstring& name, Record& out);
[[nodiscard]] DWORD WriteRecord(const std::wstring& name, const Record& record);
[[nodiscard]] DWORD WriteDescription(const std::wstring& name, std::wstring_view text);
[[nodiscard]] DWORD MarkRecord(const std::wstring& name);
[[nodiscard]] DWORD DeleteRecord(const std::wstring& name);
// Whether a handle with these rights of the registry could be had on the record; on all records for
// an empty name.
[[nodiscard]] DWORD CheckRegistry(const std::wstring& name, REGSAM access);

// Calls `visit` with each service until that gives false.
void ForEachRecord(const std::function<bool(const std::wstring& name, const Record&)>& visit);

// --- processes ---------------------------------------------------------------------------------

// A process that is not mistaken for a later one of the same number.
struct Process {
  std::uint32_t id = 0;       // 0: none
  std::uint64_t started = 0;  // the kernel's clock ticks since the machine's start
  std::uint32_t boot = 0;     // a digest of the start's name
  friend bool operator==(const Process&, const Process&) = default;
};

[[nodiscard]] Process ThisProcess();
[[nodiscard]] bool IsAlive(const Process& process);  // not for one that only waits to be reaped
void Kill(const Process& process);

// --- status files ------------------------------------------------------------------------------

enum class Dispatcher : std::uint32_t { none = 0, serving = 1, left = 2 };

// One process as it runs, or ran, a service.
struct Run {
  Process process;
  std::uint32_t launched_at = 0;  // GetTickCount
  Dispatcher dispatcher = Dispatcher::none;
  SERVICE_STATUS status{};

  // A starting program that has not called its dispatcher in time, and whose starter died.
  bool isOverdue() const;
};

inline constexpr DWORD kLimit = 30'000;  // milliseconds for a start, and for a control

// The status file of one service in memory, shared by all processes. docs/formats has the layout.
struct SharedStatus {
  using Word = std::atomic<std::uint32_t>;
  static constexpr std::size_t kRunWords = 13;
  static constexpr std::size_t kRuns = 8;

  std::array<char, 8> magic;
  // A run is written beside those that readers may look at, and then made the one in force by its
  // number, so that a writer who dies on the way changes nothing.
  Word number;  // the kernel wakes who waits for a new one; 0: never started
  std::array<std::array<Word, kRunWords>, kRuns> runs;
  // One control at a time. A control is under way as long as the numbers differ.
  Word bell;  // the dispatcher waits for its next change
  Word control_number;
  Word control;
  Word answer_number;  // who sent the control waits for it
  Word answer;
};
static_assert(std::is_standard_layout_v<SharedStatus> && sizeof(SharedStatus) == 448);

// Holds the lock that lets one process at a time look and change. A program that was launched under
// it holds it too, until it runs.
class DatabaseLock {
 public:
  DatabaseLock();
  ~DatabaseLock();
  DatabaseLock(const DatabaseLock&) = delete;
  DatabaseLock& operator=(const DatabaseLock&) = delete;
  [[nodiscard]] DWORD code() const { return m_code; }  // 0, or why there is no lock

 private:
  Descriptor m_file;
  DWORD m_code = 0;
};

class StatusFile {
 public:
  // Opens the file of a service; makes it if it may be missing. Under the DatabaseLock, or where it
  // is known to exist. Null and `code`: 1077 for a missing one, 13 for a damaged one.
  [[nodiscard]] static std::shared_ptr<StatusFile> open(const std::wstring& name, bool may_make,
                                                        DWORD& code);
  // The same file once more, with locks of its own.
  [[nodiscard]] std::shared_ptr<StatusFile> reopen(DWORD& code) const;
  // Gives up the lock of controls though a forked child may have it too; a handle's is the child's.
  ~StatusFile();
  StatusFile(const StatusFile&) = delete;
  StatusFile& operator=(const StatusFile&) = delete;

  [[nodiscard]] SharedStatus& shared() const { return *m_shared; }

  // The latest run, as it was written; nothing if there was none.
  [[nodiscard]] std::optional<Run> lastRun() const;
  // The same as everybody is to see it: stopped, with 1067, if its process has died.
  [[nodiscard]] std::optional<Run> run() const;
  // Under the DatabaseLock. Nothing but stores, so a child of fork may call it.
  void publish(const Run& run) const;
  // Waits for a run to be published after number `seen`, for a few milliseconds at most.
  void waitForRun(std::uint32_t seen) const;

  // The arguments of the next start. 87 for too many.
  [[nodiscard]] DWORD writeArguments(const std::vector<std::wstring>& arguments) const;
  [[nodiscard]] std::vector<std::wstring> readArguments() const;

  // Shows all processes that the service has an open handle, as long as this object lives.
  [[nodiscard]] DWORD holdHandle() const;
  [[nodiscard]] bool isHeldElsewhere() const;  // by another object, of whatever process
  // The lock of who sends a control, as long as this object lives; not waited for.
  [[nodiscard]] bool tryLockControls() const;

 private:
  StatusFile() = default;
  [[nodiscard]] static std::shared_ptr<StatusFile> map(Descriptor file, DWORD& code);
  Descriptor m_file;
  SharedStatus* m_shared = nullptr;
};

void RemoveStatusFile(const std::wstring& name);

// Deletes a service that is marked, stopped and not held by any handle. Under the DatabaseLock.
void SweepService(const std::wstring& name);

[[nodiscard]] std::string ServiceFolder();                     // native
[[nodiscard]] std::string StatusName(std::wstring_view name);  // of the file in the folder

// Waiting on a word that other processes change.
void WaitOnWord(const std::atomic<std::uint32_t>& word, std::uint32_t seen, int milliseconds);
void WakeWord(const std::atomic<std::uint32_t>& word);

// Measures kLimit by the clock that can be replaced.
class Limit {
 public:
  Limit();
  [[nodiscard]] bool isOver() const;

 private:
  DWORD m_start;
};

// --- launching ---------------------------------------------------------------------------------

// The environment variable that tells a program which service it is.
inline constexpr const char* kServiceVariable = "QEL_SERVICE";

struct CommandLine {
  std::string program;                 // absolute native path
  std::vector<std::string> arguments;  // native, behind the program
};

// Takes a command line apart: variables (%NAME%) are put in, a program without quotation marks ends
// at the first blank behind which a file of that name ends, arguments are taken apart by blanks,
// quotation marks and backslashes. 3 for a program that does not exist.
[[nodiscard]] DWORD ParseCommandLine(const std::wstring& line, CommandLine& out);

// Runs the program as the service. 0 when it runs, and it is then the run in force.
[[nodiscard]] DWORD Launch(const std::wstring& name, const CommandLine& command,
                           const StatusFile& file, DWORD type);

// --- handles -----------------------------------------------------------------------------------

struct Object {
  bool is_manager = false;
  DWORD access = 0;
  std::wstring name;                 // of a service
  std::shared_ptr<StatusFile> file;  // of a service
};
using ObjectPointer = std::shared_ptr<const Object>;

// The object of an open handle with these rights: 6, 5.
[[nodiscard]] DWORD ObjectOfHandle(SC_HANDLE handle, bool is_manager, DWORD access,
                                   ObjectPointer& out);

[[nodiscard]] SERVICE_STATUS StatusOf(const Object& service);

// 1 for the code 0; else 0, and the last error is set.
[[nodiscard]] BOOL Give(DWORD code);

}  // namespace qel::sys::services
