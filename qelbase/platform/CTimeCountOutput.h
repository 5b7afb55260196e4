#pragma once
// A duration that writes itself down.

#include "qelbase/export.h"
#include "qelbase/outside/framework/CString.h"
#include "qelbase/platform/CTimeCount.h"

// Measures from its making to its end, or to FlushAndDisable, and puts "LABEL, 1.234 ms" and a line
// end out: to the debugger's output, and to the end of the output file if one is named. Without
// debugger and file nothing is put out. An object belongs to one thread at a time; objects of
// several threads put whole lines out.
class QELBASE_API CTimeCountOutput {
 public:
  explicit CTimeCountOutput(const wchar_t* label);  // null: an empty one
  virtual ~CTimeCountOutput();                      // flushes, unless that was done

  // As those of CTimeCount, on the time that the flush will tell.
  void Reset() { m_count.Reset(); }
  double Poll() { return m_count.Poll(); }
  double PollAndReset() { return m_count.PollAndReset(); }

  // Stops the time and puts it out; once more, the same time again. Whether there is a debugger is
  // asked at the first flush of the process. A file that cannot be opened or written gets nothing.
  void FlushAndDisable();

  // For the whole process, empty for none; to be set before objects are flushed on other threads.
  static void SetOutputFileName(const CStringW& name);
  static const CStringW& GetOutputFileName();

 private:
  CStringW m_label;
  CTimeCount m_count;
  bool m_is_running = true;
  double m_elapsed_ms = 0;

  static CStringW m_output_file_name;
};
