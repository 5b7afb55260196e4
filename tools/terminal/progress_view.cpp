#include "terminal/progress_view.h"

#include <wchar.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <utility>

#include "qelbase/outside/system/text.h"

namespace qel::terminal {

namespace {

constexpr std::size_t kMostLevels = 64;
constexpr auto kFrame = std::chrono::milliseconds(50);
constexpr int kBarWidth = 24;
constexpr int kFigures = 32;  // columns behind the bar

double SecondsSince(Clock::time_point start, Clock::time_point now) {
  return std::max(0.0, std::chrono::duration<double>(now - start).count());
}

// Texts come from anywhere: nothing in them may steer the terminal.
bool IsControl(wchar_t c) {
  return c < 0x20 || (c >= 0x7F && c < 0xA0);
}

std::string Clean(std::wstring text) {
  std::replace_if(text.begin(), text.end(), IsControl, L' ');
  return sys::Narrow(text, sys::CP_UTF8);
}

int WidthOf(wchar_t c) {
  const int width = ::wcwidth(c);
  return width < 0 ? 1 : width;
}

// Cut or filled with blanks to so many columns.
std::string Fit(const std::string& text, int columns) {
  std::wstring fitting;
  int used = 0;
  for (wchar_t c : sys::Widen(text, sys::CP_UTF8)) {
    if (used + WidthOf(c) > columns) break;
    used += WidthOf(c);
    fitting += c;
  }
  return sys::Narrow(fitting, sys::CP_UTF8) +
         std::string(static_cast<std::size_t>(std::max(columns - used, 0)), ' ');
}

std::string Duration(double seconds) {
  char text[32];
  const auto whole = static_cast<long>(std::min(seconds + 0.5, 359999.0));
  if (whole >= 3600) {
    std::snprintf(text, sizeof text, "%ld:%02ld:%02ld", whole / 3600, whole / 60 % 60, whole % 60);
  } else {
    std::snprintf(text, sizeof text, "%ld:%02ld", whole / 60, whole % 60);
  }
  return text;
}

std::string Figures(const Level& level, Clock::time_point now) {
  const double seconds = SecondsSince(level.start, now);
  char text[64];
  if (level.percent == 0 || seconds < 0.5) {
    std::snprintf(text, sizeof text, "%4d %%", level.percent);
    return text;
  }
  const double rate = level.percent / seconds;
  std::snprintf(text, sizeof text, "%4d %% %6.1f %%/s  %s left", level.percent, rate,
                Duration((100 - level.percent) / rate).c_str());
  return text;
}

std::string Name(const Level& level) {
  return level.text.empty() ? "" : level.text + ": ";
}

std::string Closing(const Level& level, Clock::time_point now) {
  char text[64];
  std::snprintf(text, sizeof text, "%d %%, %.1f s\n", level.percent,
                SecondsSince(level.start, now));
  return Name(level) + text;
}

std::string Indent(std::size_t depth) {
  return std::string(2 * depth, ' ');
}

class Bars : public View {
 public:
  explicit Bars(int (*columns)()) : m_columns(columns) {}

  void Tick(Clock::time_point now) override {
    if (now - m_drawn >= kFrame) Draw(now);
  }
  void Close() override { Erase(); }

 protected:
  void OnEvent(Event event, std::size_t level, Clock::time_point now) override {
    const bool over = event == Event::end && level == 0;
    if (!over) return Tick(now);
    Erase();
    Put(Closing(levels()[0], now));
  }

 private:
  void Erase() {
    if (m_lines == 0) return;
    Put("\r\x1b[" + std::to_string(m_lines) + "A\x1b[J");
    m_lines = 0;
  }

  void Draw(Clock::time_point now) {
    Erase();
    std::size_t depth = 0;
    for (const Level& level : levels()) {
      if (!level.open) continue;
      Put(DrawBar(level, depth++, m_columns(), now) + "\n");
      ++m_lines;
    }
    if (m_lines != 0) m_drawn = now;
  }

  int (*m_columns)();
  int m_lines = 0;
  Clock::time_point m_drawn;
};

class Lines : public View {
 protected:
  void OnEvent(Event event, std::size_t level, Clock::time_point now) override {
    const Level& state = levels()[level];
    m_tenths.resize(std::max(m_tenths.size(), level + 1), 0);
    switch (event) {
      case Event::begin:
        m_tenths[level] = 0;
        break;
      case Event::text:
        if (!state.text.empty() && state.open) Put(Indent(level) + state.text + "\n");
        break;
      case Event::percent:
        if (state.percent / 10 > m_tenths[level]) {
          m_tenths[level] = state.percent / 10;
          Put(Indent(level) + Name(state) + std::to_string(state.percent) + " %\n");
        }
        break;
      case Event::end:
        if (level == 0) Put(Closing(state, now));
        break;
    }
  }

 private:
  std::vector<int> m_tenths;  // by level: the last one written
};

class JsonLines : public View {
 protected:
  void OnEvent(Event event, std::size_t level, Clock::time_point now) override {
    static constexpr const char* kNames[] = {"begin", "text", "percent", "end"};
    const Level& state = levels()[level];
    nlohmann::ordered_json line = {{"event", kNames[static_cast<int>(event)]}, {"level", level}};
    line["seconds"] = SecondsSince(state.start, now);
    if (event == Event::begin || event == Event::text) line["text"] = state.text;
    if (event == Event::percent) line["percent"] = state.percent;
    Put(line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n");
  }
};

}  // namespace

Level& View::At(std::size_t& level) {
  level = std::min(level, kMostLevels - 1);
  if (m_levels.size() <= level) m_levels.resize(level + 1);
  return m_levels[level];
}

void View::Begin(std::size_t level, Clock::time_point now) {
  Level& state = At(level);
  state.open = true;
  state.percent = 0;
  state.start = now;
  OnEvent(Event::begin, level, now);
}

void View::Text(std::size_t level, const std::wstring& text, Clock::time_point now) {
  Level& state = At(level);
  std::string clean = Clean(text);
  if (state.text == clean && state.open) return;
  state.text = std::move(clean);
  if (state.open) OnEvent(Event::text, level, now);
}

void View::Percent(std::size_t level, long percent, Clock::time_point now) {
  if (!At(level).open) Begin(level, now);
  At(level).percent = static_cast<int>(std::clamp(percent, 0L, 100L));
  OnEvent(Event::percent, level, now);
}

void View::End(std::size_t level, Clock::time_point now) {
  Level& state = At(level);
  if (!state.open) return;
  OnEvent(Event::end, level, now);
  state.open = false;
}

std::string View::Take() {
  return std::exchange(m_output, {});
}

std::string DrawBar(const Level& level, std::size_t depth, int columns, Clock::time_point now) {
  // The last column stays free: some terminals wrap there.
  const int room = std::max(columns - 1, 8);
  const int text_width = std::max(room - kBarWidth - kFigures - 3, 8);
  const auto filled = static_cast<std::size_t>(level.percent * kBarWidth / 100);
  std::string line = Fit(Indent(std::min<std::size_t>(depth, 8)) + level.text, text_width);
  line.append(" [").append(filled, '#').append(kBarWidth - filled, '-').append("]");
  return Fit(line.append(Figures(level, now)), room);
}

std::unique_ptr<View> MakeBars(int (*columns)()) {
  return std::make_unique<Bars>(columns);
}
std::unique_ptr<View> MakeLines() {
  return std::make_unique<Lines>();
}
std::unique_ptr<View> MakeJsonLines() {
  return std::make_unique<JsonLines>();
}

}  // namespace qel::terminal
