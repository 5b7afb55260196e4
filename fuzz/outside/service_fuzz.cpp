// Command lines of services, and status files that anything may have written into.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "qelbase/outside/system/services_internal.h"
#include "qelbase/outside/system/text.h"

using namespace qel::sys;

namespace {

const std::string& folder() {
  // Still there when the handler runs.
  static const std::string& kept = *new std::string([] {
    std::string made = "/tmp/qelfuzz.XXXXXX";
    if (!mkdtemp(made.data())) std::abort();
    setenv("QEL_REGISTRY", made.c_str(), 1);
    const services::DatabaseLock makes_the_folder;
    std::atexit([] { std::system(("rm -rf '" + folder() + "'").c_str()); });
    return made;
  }());
  return kept;
}

void parseLine(std::string_view bytes) {
  const std::wstring line = FromUtf16Le(bytes);
  services::CommandLine command;
  if (services::ParseCommandLine(L"/dev/null " + line, command) != 0) std::abort();
  if (command.arguments.size() > 100'000 + line.size()) std::abort();
  (void)services::ParseCommandLine(line, command);
}

void readStatus(std::string_view bytes) {
  const std::string file = folder() + "/services/" + services::StatusName(L"s");
  {
    const Descriptor written = Descriptor::open(file, O_RDWR | O_CREAT | O_TRUNC);
    if (!written || !WriteAll(written.get(), bytes.data(), bytes.size())) std::abort();
  }
  DWORD code = 0;
  const auto status = services::StatusFile::open(L"s", true, code);
  if (!status) return;
  if (const auto run = status->run()) (void)run->isOverdue();
  if (status->readArguments().size() > bytes.size()) std::abort();
  // A report is seen whatever was there before.
  services::Run run{.process = services::ThisProcess(), .status = {16, 4, 1, 0, 0, 0, 0}};
  status->publish(run);
  if (status->run()->status.dwCurrentState != SERVICE_RUNNING) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  if (bytes.starts_with("QELSVC01")) {
    readStatus(bytes);
  } else {
    parseLine(bytes);
  }
  return 0;
}
