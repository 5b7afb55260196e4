#include "qelbase/outside/system/messages.h"

#include "event_loops.h"
using namespace qel::sys;

void takeMessages() {
  MSG message;
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&message);
}
