#pragma once
// The lines that the library logs while the object lives.

#include <memory>
#include <string>
#include <vector>

#include "qelbase/outside/components/logging.h"

namespace qeltest {

class LogLines {
 public:
  LogLines() {
    QelSDK::Common::Logging::GetLoggerConfiguration().AddHandler(
        0,
        [lines = m_lines](const QelSDK::Common::Logging::LogInfo& info) {
          lines->emplace_back(info.text);
        },
        true);
  }
  ~LogLines() { QelSDK::Common::Logging::GetLoggerConfiguration().RemoveHandlers(); }
  LogLines(const LogLines&) = delete;
  LogLines& operator=(const LogLines&) = delete;

  std::vector<std::wstring> take() { return std::move(*m_lines); }

 private:
  std::shared_ptr<std::vector<std::wstring>> m_lines =
      std::make_shared<std::vector<std::wstring>>();
};

}  // namespace qeltest
