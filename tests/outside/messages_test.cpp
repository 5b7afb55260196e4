#include "qelbase/outside/system/messages.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <barrier>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "qelbase/outside/system/errors.h"

namespace sys = qel::sys;

namespace {

using Seen = std::vector<std::pair<UINT, WPARAM>>;

// A window of the calling thread that writes down what reaches it.
struct Recorder {
  Seen seen;
  HWND window = sys::CreateMessageWindow([this](HWND, UINT message, WPARAM first, LPARAM second) {
    seen.emplace_back(message, first);
    return static_cast<LRESULT>(second * 2);
  });
  ~Recorder() {
    if (sys::IsWindow(window)) sys::DestroyWindow(window);
  }
};

int pumpAll() {
  int count = 0;
  for (sys::MSG message; sys::PeekMessageW(&message, nullptr, 0, 0, sys::PM_REMOVE); ++count) {
    sys::DispatchMessageW(&message);
  }
  return count;
}

bool isReadable(int descriptor) {
  pollfd entry{descriptor, POLLIN, 0};
  return ::poll(&entry, 1, 0) == 1;
}

// Lets `work` run with a window of another thread, which pumps until the work is done.
template <class Work>
void withPumpingThread(sys::WindowProcedure procedure, Work work) {
  std::atomic<HWND> window{nullptr};
  std::thread owner([&] {
    window = sys::CreateMessageWindow(std::move(procedure));
    window.notify_all();
    sys::MSG message;
    while (sys::GetMessageW(&message, nullptr, 0, 0) > 0) sys::DispatchMessageW(&message);
  });
  window.wait(nullptr);
  work(window.load());
  sys::PostMessageW(window, sys::WM_QUIT, 0, 0);
  owner.join();
}

}  // namespace

TEST(Messages, SendRunsTheProcedureAtOnceAndPostQueuesInOrder) {
  Recorder recorder;
  EXPECT_TRUE(sys::PostMessageW(recorder.window, 1, 10, 0));
  EXPECT_TRUE(sys::PostMessageW(recorder.window, 2, 20, 0));
  EXPECT_EQ(sys::SendMessageW(recorder.window, 3, 30, 21), 42);
  EXPECT_EQ(recorder.seen, (Seen{{3, 30}}));
  EXPECT_EQ(pumpAll(), 2);
  EXPECT_EQ(recorder.seen, (Seen{{3, 30}, {1, 10}, {2, 20}}));
}

TEST(Messages, PeekFiltersAndLeavesOrRemoves) {
  Recorder a;
  Recorder b;
  sys::PostMessageW(a.window, 1, 0, 0);
  sys::PostMessageW(b.window, 2, 0, 0);
  sys::PostMessageW(nullptr, 3, 0, 0);
  sys::MSG message;
  for (int round = 0; round < 2; ++round) {
    ASSERT_TRUE(sys::PeekMessageW(&message, b.window, 0, 0, sys::PM_NOREMOVE));
    EXPECT_EQ(message.message, 2u);
  }
  ASSERT_TRUE(sys::PeekMessageW(&message, nullptr, 2, 3, sys::PM_REMOVE));
  EXPECT_EQ(message.message, 2u);
  EXPECT_FALSE(sys::PeekMessageW(&message, b.window, 0, 0, sys::PM_REMOVE));
  ASSERT_TRUE(sys::PeekMessageW(&message, nullptr, 3, 3, sys::PM_REMOVE));
  EXPECT_EQ(message.hwnd, nullptr);
  EXPECT_EQ(sys::DispatchMessageW(&message), 0);
  EXPECT_EQ(pumpAll(), 1);
}

TEST(Messages, ALostWindowIsAnErrorCodeEverywhere) {
  auto recorder = std::make_unique<Recorder>();
  const HWND window = recorder->window;
  sys::PostMessageW(window, 1, 0, 0);
  recorder.reset();
  EXPECT_EQ(pumpAll(), 0);
  sys::MSG message{window, 1, 0, 0};
  const std::vector<std::function<long()>> calls = {
      [&] { return sys::PostMessageW(window, 1, 0, 0); },
      [&] { return sys::SendMessageW(window, 1, 0, 0); },
      [&] { return sys::DispatchMessageW(&message); },
      [&] { return sys::DestroyWindow(window); },
      [&] { return sys::GetWindowThreadProcessId(window, nullptr); },
      [&] { return sys::PeekMessageW(&message, window, 0, 0, sys::PM_REMOVE); },
      [&] { return sys::GetMessageW(&message, window, 0, 0) + 1; },
  };
  for (std::size_t i = 0; i < calls.size(); ++i) {
    sys::SetLastError(0);
    EXPECT_EQ(calls[i](), 0) << i;
    EXPECT_EQ(sys::GetLastError(), 1400u) << i;
  }
}

TEST(Messages, AFullQueueRefusesAndLosesNothingItTook) {
  Recorder recorder;
  for (std::size_t i = 0; i < sys::kQueueLimit; ++i) {
    ASSERT_TRUE(sys::PostMessageW(recorder.window, 1, i, 0));
  }
  EXPECT_FALSE(sys::PostMessageW(recorder.window, 1, 0, 0));
  EXPECT_EQ(sys::GetLastError(), 1816u);
  EXPECT_EQ(pumpAll(), static_cast<int>(sys::kQueueLimit));
  for (std::size_t i = 0; i < sys::kQueueLimit; ++i) ASSERT_EQ(recorder.seen[i].second, i);
}

TEST(Messages, TheDescriptorIsReadableAsLongAsSomethingWaits) {
  Recorder recorder;
  sys::PostMessageW(recorder.window, 1, 0, 0);
  const int descriptor = sys::GetMessageQueueDescriptor();
  ASSERT_GE(descriptor, 0);
  EXPECT_TRUE(isReadable(descriptor));
  sys::PostMessageW(recorder.window, 2, 0, 0);
  sys::MSG message;
  sys::PeekMessageW(&message, nullptr, 0, 0, sys::PM_REMOVE);
  EXPECT_TRUE(isReadable(descriptor));
  pumpAll();
  EXPECT_FALSE(isReadable(descriptor));
  std::thread([&] { sys::PostMessageW(recorder.window, 3, 0, 0); }).join();
  EXPECT_TRUE(isReadable(descriptor));
  sys::DestroyWindow(recorder.window);
  EXPECT_FALSE(isReadable(descriptor));
}

TEST(Messages, SendingToAnotherThreadGivesItsAnswer) {
  std::thread::id ran_on;
  const auto procedure = [&](HWND, UINT, WPARAM first, LPARAM second) -> LRESULT {
    ran_on = std::this_thread::get_id();
    return static_cast<LRESULT>(first) + second;
  };
  withPumpingThread(procedure, [&](HWND window) {
    EXPECT_EQ(sys::SendMessageW(window, 1, 40, 2), 42);
    EXPECT_NE(ran_on, std::this_thread::get_id());
    EXPECT_FALSE(sys::DestroyWindow(window));
    EXPECT_EQ(sys::GetLastError(), 5u);
  });
}

TEST(Messages, TwoThreadsThatSendToEachOtherBothGetAnAnswer) {
  Recorder own;
  const auto procedure = [&](HWND, UINT message, WPARAM, LPARAM second) {
    return sys::SendMessageW(own.window, message, 7, second) + 1;
  };
  withPumpingThread(procedure, [&](HWND other) {
    for (int i = 0; i < 200; ++i) ASSERT_EQ(sys::SendMessageW(other, 5, 0, i), 2 * i + 1);
  });
  EXPECT_EQ(own.seen.size(), 200u);
}

TEST(Messages, TheEndOfAThreadTakesItsWindowsAndAnswersWhoWaits) {
  std::atomic<HWND> window{nullptr};
  std::barrier made(2);
  std::thread owner([&] {
    window = sys::CreateMessageWindow([](HWND, UINT, WPARAM, LPARAM) { return LRESULT{1}; });
    made.arrive_and_wait();
    // Ends once the call has arrived, without taking it.
    pollfd entry{sys::GetMessageQueueDescriptor(), POLLIN, 0};
    ::poll(&entry, 1, -1);
  });
  made.arrive_and_wait();
  EXPECT_EQ(sys::SendMessageW(window, 1, 0, 0), 0);
  EXPECT_EQ(sys::GetLastError(), 1400u);
  owner.join();
  EXPECT_FALSE(sys::IsWindow(window));
}

TEST(Messages, APostedTextLivesUntilItIsHandled) {
  std::weak_ptr<const std::wstring> watched;
  std::wstring seen;
  bool alive_in_nested_pump = false;
  const HWND window =
      sys::CreateMessageWindow([&](HWND, UINT, WPARAM first, LPARAM second) -> LRESULT {
        if (first != 1) return 0;
        pumpAll();  // takes the second message while the first is handled
        alive_in_nested_pump = !watched.expired();
        seen = reinterpret_cast<const wchar_t*>(second);
        return 0;
      });
  auto text = std::make_shared<const std::wstring>(L"a text that is longer than any small buffer");
  watched = text;
  sys::PostTextMessageW(window, 1, 1, std::move(text));
  sys::PostTextMessageW(window, 1, 2, std::make_shared<const std::wstring>(L"b"));
  EXPECT_EQ(pumpAll(), 1);
  EXPECT_TRUE(alive_in_nested_pump);
  EXPECT_EQ(seen, L"a text that is longer than any small buffer");
  EXPECT_TRUE(watched.expired());
  text = std::make_shared<const std::wstring>(L"c");
  watched = text;
  sys::PostTextMessageW(window, 1, 2, std::move(text));
  sys::DestroyWindow(window);
  EXPECT_TRUE(watched.expired());
}

TEST(Messages, QuitComesAfterWhatIsWaiting) {
  Recorder recorder;
  sys::PostQuitMessage(9);
  sys::PostMessageW(recorder.window, 1, 0, 0);
  sys::MSG message;
  EXPECT_EQ(sys::GetMessageW(&message, nullptr, 0, 0), 1);
  EXPECT_EQ(sys::GetMessageW(&message, nullptr, 0, 0), 0);
  EXPECT_EQ(message.wParam, 9u);
  EXPECT_FALSE(sys::PeekMessageW(&message, nullptr, 0, 0, sys::PM_REMOVE));
}

TEST(Messages, AMessageBoxAsksTheHandlerOrGivesTheAnswerThatChangesNothing) {
  const auto before = sys::SetMessageBoxHandler(
      [](HWND, const wchar_t* text, const wchar_t*, UINT) { return *text ? sys::IDYES : 99; });
  EXPECT_EQ(sys::MessageBoxW(nullptr, L"?", L"", sys::MB_YESNO), sys::IDYES);
  EXPECT_EQ(sys::MessageBoxW(nullptr, nullptr, nullptr, sys::MB_YESNO), 99);
  sys::SetMessageBoxHandler(before);
  testing::internal::CaptureStderr();
  EXPECT_EQ(sys::MessageBoxW(nullptr, L"größer", L"QelBase", sys::MB_YESNO), sys::IDNO);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "QelBase: größer\n");
}
