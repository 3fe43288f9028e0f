#pragma once
// The consumer that the event_monitor daemon and the ny80211 tool share:
// prints each event of a queue as one line until an end marker.
#include <cstddef>
#include <ostream>

#include <Poco/AutoPtr.h>
#include <Poco/Notification.h>
#include <Poco/NotificationQueue.h>

#include "ny80211/Events.h"
#include "ny80211/WextEvents.h"

namespace Example {

// Enqueued behind the last event: the consumer ends when it gets there.
class EndOfEvents final : public Poco::Notification {};

// Prints each event as one line, flushed at once so that a reader sees it
// when it happens; returns how many it printed.
inline std::size_t printEvents(Poco::NotificationQueue& queue, std::ostream& out) {
  std::size_t count = 0;
  for (;;) {
    Poco::AutoPtr<Poco::Notification> const notification(queue.waitDequeueNotification());
    if (notification.isNull()) continue;  // only a wakeUpAll() gives none
    if (dynamic_cast<EndOfEvents const*>(notification.get()) != nullptr) return count;
    if (auto const* event = dynamic_cast<Ny80211::Event::Nl80211Event const*>(notification.get())) {
      out << event->toString() << '\n';
    } else if (auto const* wext =
                   dynamic_cast<Ny80211::Event::WextEvent const*>(notification.get())) {
      out << wext->toString() << '\n';
    } else {
      out << "notification " << notification->name() << '\n';
    }
    out.flush();
    ++count;
  }
}

}  // namespace Example
