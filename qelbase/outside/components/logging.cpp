#include "qelbase/outside/components/logging.h"

#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/sink.h>

#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "qelbase/outside/components/MFile.h"
#include "qelbase/outside/system/debug.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/lasting_internal.h"
#include "qelbase/outside/system/text.h"

namespace QelSDK::Common::Logging {

namespace {

namespace level = spdlog::level;

// Texts travel through the backend as UTF-8, channels as its logger names.
std::string narrow(std::wstring_view text) {
  return qel::sys::Narrow(text, qel::sys::CP_UTF8);
}

std::wstring wide(const spdlog::string_view_t& text) {
  return qel::sys::Widen({text.data(), text.size()}, qel::sys::CP_UTF8);
}

level::level_enum levelOf(std::uint32_t lowest) {
  return lowest == 0 ? level::info : level::err;
}

// Passes lines to one handler.
class HandlerSink final : public spdlog::sinks::sink {
 public:
  explicit HandlerSink(LogHandler handler) : m_handler(std::move(handler)) {}

  void log(const spdlog::details::log_msg& message) override {
    const std::wstring channel = wide(message.logger_name);
    const std::wstring text = wide(message.payload);
    const auto time =
        std::chrono::duration_cast<std::chrono::milliseconds>(message.time.time_since_epoch());
    m_handler({channel.c_str(), text.c_str(), message.level >= level::err, time.count(),
               message.thread_id});
  }
  void flush() override {}
  void set_pattern(const std::string&) override {}
  void set_formatter(std::unique_ptr<spdlog::formatter>) override {}

 private:
  LogHandler m_handler;
};

using Sinks = std::vector<spdlog::sink_ptr>;

// The one sink of all loggers. A handler may attach and remove handlers: a line goes to those that
// were attached when it came. What a handler logs itself reaches nobody, else it would never end.
class FanOut final : public spdlog::sinks::sink {
 public:
  void add(spdlog::sink_ptr added) {
    const std::lock_guard lock(m_mutex);
    auto sinks = std::make_shared<Sinks>(*m_sinks);
    sinks->push_back(std::move(added));
    m_count = sinks->size();
    m_sinks = std::move(sinks);
  }

  // When this returns, no other thread is in a handler.
  void clear() {
    const std::lock_guard lock(m_mutex);
    m_count = 0;
    m_sinks = std::make_shared<Sinks>();
  }

  std::size_t count() const { return m_count; }

  void log(const spdlog::details::log_msg& message) override {
    const std::lock_guard lock(m_mutex);
    if (m_busy) return;
    m_busy = true;
    const std::shared_ptr<const Sinks> sinks = m_sinks;
    for (const spdlog::sink_ptr& each : *sinks) deliver(*each, message);
    m_busy = false;
  }
  void flush() override {}
  void set_pattern(const std::string&) override {}
  void set_formatter(std::unique_ptr<spdlog::formatter>) override {}

 private:
  static void deliver(spdlog::sinks::sink& to, const spdlog::details::log_msg& message) {
    if (!to.should_log(message.level)) return;
    try {
      to.log(message);
    } catch (...) {  // a handler's failure is none of the caller's
    }
  }

  std::recursive_mutex m_mutex;
  std::shared_ptr<const Sinks> m_sinks = std::make_shared<Sinks>();
  std::atomic<std::size_t> m_count{0};
  bool m_busy = false;  // under the mutex, so this thread is in a handler
};

class Configuration final : public ILoggerConfiguration {
 public:
  void AddHandler(std::uint32_t lowest, LogHandler handler, bool enabled) override {
    if (!handler) return;
    auto sink = std::make_shared<HandlerSink>(std::move(handler));
    sink->set_level(enabled ? levelOf(lowest) : level::off);
    m_fan_out->add(std::move(sink));
  }
  void SetLowest(std::uint32_t lowest) override { m_lowest = lowest; }
  std::uint32_t GetLowest() const override { return m_lowest; }
  void SetEnabled(bool enabled) override { m_enabled = enabled; }
  bool IsEnabled() const override { return m_enabled; }
  std::size_t GetHandlerCount() const override { return m_fan_out->count(); }
  void RemoveHandlers() override { m_fan_out->clear(); }

  bool hears(level::level_enum severity) const {
    return m_fan_out->count() > 0 && m_enabled && severity >= levelOf(m_lowest);
  }
  const std::shared_ptr<FanOut>& fanOut() const { return m_fan_out; }

 private:
  std::shared_ptr<FanOut> m_fan_out = std::make_shared<FanOut>();
  std::atomic<std::uint32_t> m_lowest{0};
  std::atomic<bool> m_enabled{true};
};

class ChannelLogger final : public ILogger {
 public:
  ChannelLogger(const std::wstring& channel, const Configuration& configuration)
      : m_configuration(configuration), m_backend(narrow(channel), configuration.fanOut()) {}

  void LogFailure(LogMessage& message) override { log(level::err, message); }
  void LogInformation(LogMessage& message) override { log(level::info, message); }

 private:
  void log(level::level_enum severity, LogMessage& message) noexcept {
    if (!m_configuration.hears(severity)) return;
    try {
      m_backend.log(severity, narrow(message.view()));
    } catch (...) {  // for want of memory
    }
  }

  const Configuration& m_configuration;
  spdlog::logger m_backend;
};

// Never destroyed: static objects log in their destructors.
struct Registry {
  std::mutex mutex;
  Configuration configuration;
  std::map<std::wstring, std::unique_ptr<ChannelLogger>> loggers;
};

Registry& registry() {
  static qel::sys::Lasting<Registry> instance;
  return *instance;
}

// "2026-11-22 23:12:56.123 error [channel] text", local time.
std::string lineOf(const LogInfo& info) {
  using Clock = spdlog::log_clock;
  spdlog::pattern_formatter formatter(
      *info.channel ? "%Y-%m-%d %H:%M:%S.%e %l [%n] %v" : "%Y-%m-%d %H:%M:%S.%e %l %v",
      spdlog::pattern_time_type::local, "\n");
  const std::string channel = narrow(info.channel);
  const std::string text = narrow(info.text);
  const Clock::time_point time{
      std::chrono::duration_cast<Clock::duration>(std::chrono::milliseconds(info.time_ms))};
  spdlog::memory_buf_t line;
  formatter.format({time, {}, channel, info.is_failure ? level::err : level::info, text}, line);
  return {line.data(), line.size()};
}

}  // namespace

LogMessage::LogMessage() = default;

LogMessage::LogMessage(const wchar_t* text)
    : std::wostringstream(text ? text : L"", std::ios::out | std::ios::ate) {}

ILogger& GetLogger() {
  return GetLogger({});
}

ILogger& GetLogger(const std::wstring& channel) {
  Registry& all = registry();
  const std::lock_guard lock(all.mutex);
  std::unique_ptr<ChannelLogger>& logger = all.loggers[channel];
  if (!logger) logger = std::make_unique<ChannelLogger>(channel, all.configuration);
  return *logger;
}

ILoggerConfiguration& GetLoggerConfiguration() {
  return registry().configuration;
}

void DebugOutputHandler::operator()(const LogInfo& info) const {
  qel::sys::OutputDebugStringW(qel::sys::Widen(lineOf(info), qel::sys::CP_UTF8).c_str());
}

struct FileOutputHandler::Sink {
  std::mutex mutex;
  MFile file{4096};
  bool flush = false;
};

FileOutputHandler::FileOutputHandler(const std::wstring& file_name, bool append, bool flush)
    : m_sink(std::make_shared<Sink>()) {
  m_sink->flush = flush;
  MFile& file = m_sink->file;
  if (append && file.OPEN_UPDATE(file_name.c_str())) return;
  const bool missing = file.GET_RESULT() == qel::sys::ERROR_FILE_NOT_FOUND;
  if (!append || missing) file.OPEN_WRITE(file_name.c_str());
}

FileOutputHandler::FileOutputHandler(const FileOutputHandler& other) = default;
FileOutputHandler& FileOutputHandler::operator=(const FileOutputHandler& other) = default;
FileOutputHandler::~FileOutputHandler() = default;

void FileOutputHandler::operator()(const LogInfo& info) const {
  const std::string line = lineOf(info);
  const std::lock_guard lock(m_sink->mutex);
  MFile& file = m_sink->file;
  if (!file.IS_OPEN()) return;
  file.SEEK(0, 2);
  file.WRITE(line.data(), line.size());
  if (m_sink->flush) file.FLUSH();
}

}  // namespace QelSDK::Common::Logging
