#include "qelbase/outside/system/messages.h"

#include "event_loops.h"
using namespace qel::sys;

void runOwnLoop() {
  MSG message;
  while (GetMessageW(&message, nullptr, 0, 0) > 0) DispatchMessageW(&message);
}
