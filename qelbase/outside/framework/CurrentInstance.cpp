#include "qelbase/outside/framework/CurrentInstance.h"

#include <atomic>

namespace {
constinit std::atomic<HINSTANCE> current = nullptr;
}

HINSTANCE GetCurrentInstance() {
  return current;
}

void SetCurrentInstance(HINSTANCE instance) {
  current = instance;
}
