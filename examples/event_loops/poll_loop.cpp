#include <poll.h>

#include "qelbase/outside/system/messages.h"

#include "event_loops.h"
using namespace qel::sys;

void runPollLoop(int socket, bool (*answer)(int socket)) {
  pollfd waiting[] = {{GetMessageQueueDescriptor(), POLLIN, 0}, {socket, POLLIN, 0}};
  for (bool open = true; open;) {
    if (poll(waiting, 2, -1) < 0) continue;  // a signal
    if (waiting[0].revents != 0) takeMessages();
    if (waiting[1].revents != 0) open = answer(socket);
  }
}
