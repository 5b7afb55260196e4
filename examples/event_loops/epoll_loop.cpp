#include <sys/epoll.h>

#include "qelbase/outside/system/messages.h"

#include "event_loops.h"
using namespace qel::sys;

void runEpollLoop(int loop, bool (*answer)(const epoll_event& event)) {
  const int messages = GetMessageQueueDescriptor();
  epoll_event event = {EPOLLIN, {.fd = messages}};
  epoll_ctl(loop, EPOLL_CTL_ADD, messages, &event);
  for (bool open = true; open;) {
    if (epoll_wait(loop, &event, 1, -1) < 1) continue;  // a signal
    if (event.data.fd == messages) {
      takeMessages();
    } else {
      open = answer(event);
    }
  }
}
