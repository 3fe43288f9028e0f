#include "NyEvent/Publisher.h"

namespace NyEvent {

void Publisher::Publish(Poco::AutoPtr<Poco::Notification> const& event) const {
  queue_->enqueueNotification(event);
}

}  // namespace NyEvent
