#include "qelbase/platform/CTimeCountOutput.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "qelbase/outside/components/formatting.h"
#include "qelbase/outside/system/debug.h"
#include "qelbase/outside/system/files.h"
#include "qelbase/text/CharacterSetConversions.h"

namespace {

bool hasDebugger() {
  static const bool answer = qel::sys::IsDebuggerPresent() != 0;
  return answer;
}

// One write to the end of the file: no line of another thread or process gets into this one.
void append(const CStringW& file_name, const std::wstring& line) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(qel::sys::_wfopen(file_name, L"a+"),
                                                             std::fclose);
  if (!file) return;
  const CharacterSetConversions::String<char> text(line);
  if (text) std::fwrite(text, 1, std::strlen(text), file.get());
}

}  // namespace

CTimeCountOutput::CTimeCountOutput(const wchar_t* label) : m_label(label) {}

CTimeCountOutput::~CTimeCountOutput() {
  if (m_is_running) FlushAndDisable();
}

void CTimeCountOutput::FlushAndDisable() {
  if (m_is_running) {
    m_elapsed_ms = m_count.Poll();
    m_is_running = false;
  }
  if (!hasDebugger() && m_output_file_name.IsEmpty()) return;
  const wchar_t* const label = m_label;
  const std::wstring line = QelStdBase::FormatString(L"%s, %.3f ms\n", label, m_elapsed_ms);
  qel::sys::OutputDebugStringW(line.c_str());
  if (!m_output_file_name.IsEmpty()) append(m_output_file_name, line);
}

void CTimeCountOutput::SetOutputFileName(const CStringW& name) {
  m_output_file_name = name;
}

const CStringW& CTimeCountOutput::GetOutputFileName() {
  return m_output_file_name;
}
