// The loops that the guide shows, each with a thread that posts to a window of the loop's thread.
#include "event_loops.h"

#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <functional>
#include <thread>

#include "qelbase/outside/system/messages.h"
#ifdef HAVE_GLIB
#include <glib.h>
#endif
#ifdef HAVE_QT
#include <QCoreApplication>
#endif

namespace sys = qel::sys;

namespace {

constexpr int kMessages = 300;

// Runs the loop, in which `end` is called after the last message.
void expectAllMessages(const std::function<void()>& run, const std::function<void()>& end) {
  int handled = 0;
  const HWND window = sys::CreateMessageWindow([&](HWND, UINT, WPARAM, LPARAM) -> LRESULT {
    if (++handled == kMessages) end();
    return 0;
  });
  std::thread poster([&] {
    for (int i = 0; i < kMessages; ++i) sys::PostMessageW(window, 1, 0, 0);
  });
  run();
  poster.join();
  sys::DestroyWindow(window);
  EXPECT_EQ(handled, kMessages);
}

// Something else that the loop waits for: it ends the loop.
struct Pipe {
  int read_end = -1, write_end = -1;
  Pipe() {
    int ends[2];
    if (::pipe(ends) != 0) return;
    read_end = ends[0];
    write_end = ends[1];
  }
  ~Pipe() {
    ::close(read_end);
    ::close(write_end);
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
};

TEST(EventLoops, OfTheProgramItselfTakeAllMessages) {
  expectAllMessages(runOwnLoop, [] { sys::PostQuitMessage(0); });

  const Pipe pipe;
  const auto say_end = [&] { ASSERT_EQ(::write(pipe.write_end, "x", 1), 1); };
  const auto read_one = [](int descriptor) {
    char byte = 0;
    return ::read(descriptor, &byte, 1) != 1;
  };
  expectAllMessages([&] { runPollLoop(pipe.read_end, read_one); }, say_end);

  const int loop = ::epoll_create1(EPOLL_CLOEXEC);
  epoll_event other = {EPOLLIN, {.fd = pipe.read_end}};
  ASSERT_EQ(::epoll_ctl(loop, EPOLL_CTL_ADD, pipe.read_end, &other), 0);
  expectAllMessages([&] { runEpollLoop(loop, [](const epoll_event&) { return false; }); }, say_end);
  ::close(loop);
}

#ifdef HAVE_GLIB
TEST(EventLoops, OfGLibTakeAllMessages) {
  GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
  const unsigned watch = watchMessages();
  expectAllMessages([&] { g_main_loop_run(loop); }, [&] { g_main_loop_quit(loop); });
  g_source_remove(watch);
  g_main_loop_unref(loop);
}
#endif

#ifdef HAVE_QT
TEST(EventLoops, OfQtTakeAllMessages) {
  int argc = 1;
  char name[] = "test";
  char* argv[] = {name, nullptr};
  QCoreApplication application(argc, argv);
  watchMessages(&application);
  expectAllMessages([] { QCoreApplication::exec(); }, [] { QCoreApplication::quit(); });
}
#endif

}  // namespace
