#include "qelbase/platform/TestingUtility.h"

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/date_time/posix_time/time_formatters.hpp>
#include <boost/filesystem/exception.hpp>
#include <boost/filesystem/operations.hpp>
#include <stdexcept>

#include "qelbase/outside/components/formatting.h"
#include "qelbase/outside/components/logging.h"
#include "qelbase/outside/system/clock.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/paths/path_functions.h"

namespace fs = boost::filesystem;
namespace logging = QelSDK::Common::Logging;

namespace {

constinit logging::ILoggerConfiguration* kept_configuration = nullptr;

bool exists(const std::wstring& path) {
  std::string native;
  boost::system::error_code ignored;
  return qel::sys::ToNative(path, native) &&
         fs::status(native, ignored).type() > fs::file_not_found;
}

void createFolder(const std::wstring& path) {
  std::string native;
  if (!qel::sys::ToNativeForCreation(path, native)) {
    throw fs::filesystem_error("the folder's name is not valid", native,
                               make_error_code(boost::system::errc::invalid_argument));
  }
  fs::create_directory(native);
}

// 2024-Mar-05 14_07_09, local time.
std::wstring timeAsName() {
  std::tm local{};
  if (!qel::sys::LocalTime(local)) {
    throw std::runtime_error("could not convert calendar time to local time");
  }
  const boost::posix_time::ptime time(
      boost::gregorian::date_from_tm(local),
      boost::posix_time::time_duration(local.tm_hour, local.tm_min, local.tm_sec));
  std::wstring name = QelStdBase::ConvertAnsiToUnicode(to_simple_string(time));
  MFileUtility::FixFileName(name);
  return name;
}

}  // namespace

namespace TestingUtility {

bool SetupLoggingForTesting() {
  std::wstring run_folder;
  return SetupLoggingForTesting(run_folder, GetDefaultPathForTesting(), {});
}

bool SetupLoggingForTesting(std::wstring& run_folder, const std::wstring& base_folder,
                            const std::wstring& suffix) {
  EndLoggingForTesting();
  logging::ILoggerConfiguration& configuration = logging::GetLoggerConfiguration();
  kept_configuration = &configuration;
  configuration.AddHandler(0, logging::DebugOutputHandler(), true);
  if (!exists(base_folder)) return false;
  std::wstring folder = base_folder + L"/" + timeAsName();
  if (!suffix.empty()) folder += L"_" + suffix;
  run_folder = folder;
  if (!exists(folder)) createFolder(folder);
  const std::wstring log_file = folder + L"/log.txt";
  configuration.AddHandler(0, logging::FileOutputHandler(log_file, true, true), true);
  logging::LogMessage message(
      QelStdBase::FormatString(L"RigProbe: logging to file = %s.", log_file.c_str()).c_str());
  logging::GetLogger().LogInformation(message);
  return true;
}

void EndLoggingForTesting() {
  if (kept_configuration) kept_configuration->RemoveHandlers();
}

std::wstring GetDefaultPathForTesting() {
  return L"Z:/RigProbeOut";
}

}  // namespace TestingUtility
