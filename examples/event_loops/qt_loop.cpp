#include <QSocketNotifier>

#include "qelbase/outside/system/messages.h"

#include "event_loops.h"
using namespace qel::sys;

void watchMessages(QObject* owner) {
  auto* notifier = new QSocketNotifier(GetMessageQueueDescriptor(), QSocketNotifier::Read, owner);
  QObject::connect(notifier, &QSocketNotifier::activated, owner, [] { takeMessages(); });
}
