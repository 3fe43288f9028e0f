#pragma once
// NyEvent::Publisher: a copyable handle of the daemon's event bus, a
// Poco::NotificationQueue that the daemon owns and that outlives the handle.

#include <Poco/AutoPtr.h>
#include <Poco/Notification.h>
#include <Poco/NotificationQueue.h>

namespace NyEvent {

class Publisher {
 public:
  explicit Publisher(Poco::NotificationQueue& queue) noexcept : queue_(&queue) {}

  // Enqueues a new reference to the event; the caller keeps its own.
  void Publish(Poco::AutoPtr<Poco::Notification> const& event) const;

  Poco::NotificationQueue& GetQueue() const noexcept { return *queue_; }

 private:
  Poco::NotificationQueue* queue_;
};

}  // namespace NyEvent
