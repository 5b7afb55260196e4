#pragma once
// Diagnostic lines: channels, a configuration that handlers are attached to, and two handlers.

#include <cstdint>
#include <functional>
#include <memory>
#include <sstream>
#include <string>

#include "qelbase/export.h"

namespace QelSDK::Common::Logging {

// One line while it is put together: a wide text stream.
class QELBASE_API LogMessage : public std::wostringstream {
 public:
  LogMessage();
  explicit LogMessage(const wchar_t* text);  // the text becomes the content; more is appended
};

// One logged line as handlers receive it. Valid only during the handler's call.
struct LogInfo {
  const wchar_t* channel;  // empty for the default logger
  const wchar_t* text;
  bool is_failure;          // logged through the first operation
  std::int64_t time_ms;     // milliseconds since 1970, UTC
  std::uint64_t thread_id;  // the system's number of the thread that logged
};

// Safe on any thread. Logging never fails towards the caller and costs nothing but the formatting
// when nobody listens.
class ILogger {
 public:
  virtual void LogFailure(LogMessage& message) = 0;
  virtual void LogInformation(LogMessage& message) = 0;

 protected:
  ~ILogger() = default;
};

using LogHandler = std::function<void(const LogInfo&)>;

// Slots one and seven are what the library itself uses.
class ILoggerConfiguration {
 public:
  // From now on `handler` gets every line of a severity not below `lowest` (0 all, 1 failures
  // only); `enabled` false attaches it switched off. Handlers run one at a time, on the logging
  // thread.
  virtual void AddHandler(std::uint32_t lowest, LogHandler handler, bool enabled) = 0;
  virtual void SetLowest(std::uint32_t lowest) = 0;
  virtual std::uint32_t GetLowest() const = 0;
  virtual void SetEnabled(bool enabled) = 0;
  virtual bool IsEnabled() const = 0;
  virtual std::size_t GetHandlerCount() const = 0;
  virtual void RemoveHandlers() = 0;  // may be called repeatedly

 protected:
  ~ILoggerConfiguration() = default;
};

// The references stay valid until the process ends.
QELBASE_API ILogger& GetLogger();
QELBASE_API ILogger& GetLogger(const std::wstring& channel);
QELBASE_API ILoggerConfiguration& GetLoggerConfiguration();

// Hands each line to the debugger's output.
class QELBASE_API DebugOutputHandler {
 public:
  void operator()(const LogInfo& info) const;
};

// Writes each line to a file, which copies of the handler share. A file that cannot be opened or
// written swallows the lines.
class QELBASE_API FileOutputHandler {
 public:
  // `append` keeps what the file holds; `flush` hands each line to the system at once.
  FileOutputHandler(const std::wstring& file_name, bool append, bool flush);
  FileOutputHandler(const FileOutputHandler& other);
  FileOutputHandler& operator=(const FileOutputHandler& other);
  ~FileOutputHandler();
  void operator()(const LogInfo& info) const;

 private:
  struct Sink;
  std::shared_ptr<Sink> m_sink;
};

}  // namespace QelSDK::Common::Logging
