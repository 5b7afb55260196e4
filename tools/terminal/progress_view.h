#pragma once
// What is shown of the progress: the open levels, and three ways to write them.

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace qel::terminal {

using Clock = std::chrono::steady_clock;

// One nesting level of the running operation.
struct Level {
  bool open = false;
  std::string text;  // UTF-8, without control characters
  int percent = 0;   // 0 to 100
  Clock::time_point start;
};

// Hears what the windows are told, keeps the levels and gives the bytes to write. Levels that were
// never begun, or that were begun twice, as when messages got lost, do no harm.
class View {
 public:
  virtual ~View() = default;
  View(const View&) = delete;
  View& operator=(const View&) = delete;

  void Begin(std::size_t level, Clock::time_point now);
  void Text(std::size_t level, const std::wstring& text, Clock::time_point now);
  void Percent(std::size_t level, long percent, Clock::time_point now);
  void End(std::size_t level, Clock::time_point now);
  // Lets time go by: an animated view is drawn anew.
  virtual void Tick(Clock::time_point) {}
  // The end of the display.
  virtual void Close() {}

  // What is to be written since the last call.
  std::string Take();

 protected:
  enum class Event { begin, text, percent, end };
  View() = default;
  // The level's state is the new one, but at the end, when it is the last.
  virtual void OnEvent(Event event, std::size_t level, Clock::time_point now) = 0;

  const std::vector<Level>& levels() const { return m_levels; }
  void Put(const std::string& bytes) { m_output += bytes; }

 private:
  Level& At(std::size_t& level);  // cuts it to what is kept

  std::vector<Level> m_levels;
  std::string m_output;
};

// One bar a level, drawn over the ones before; at most twenty times a second. `columns` is asked
// for the terminal's width at each drawing.
std::unique_ptr<View> MakeBars(int (*columns)());
// One line for each tenth of a level, for logs and pipes.
std::unique_ptr<View> MakeLines();
// One JSON object a line for each event, for scripts: "event" ("begin", "text", "percent", "end"),
// "level", "seconds" since the level began, and "text" or "percent".
std::unique_ptr<View> MakeJsonLines();

// The bar of one level, `columns` wide at the most: text, bar, percent, percent a second, time
// left.
std::string DrawBar(const Level& level, std::size_t depth, int columns, Clock::time_point now);

}  // namespace qel::terminal
