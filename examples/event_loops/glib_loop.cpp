#include <glib-unix.h>

#include "qelbase/outside/system/messages.h"

#include "event_loops.h"
using namespace qel::sys;

unsigned watchMessages() {
  const auto take = [](gint, GIOCondition, gpointer) -> gboolean {
    takeMessages();
    return G_SOURCE_CONTINUE;
  };
  return g_unix_fd_add(GetMessageQueueDescriptor(), G_IO_IN, take, nullptr);
}
