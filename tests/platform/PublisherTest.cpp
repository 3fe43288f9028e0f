#include <Poco/AutoPtr.h>
#include <Poco/Notification.h>
#include <Poco/NotificationQueue.h>
#include <gtest/gtest.h>

#include "NyEvent/Publisher.h"

namespace {

class Note : public Poco::Notification {
 public:
  explicit Note(int n) : number(n) {}
  int const number;
};

TEST(Publisher, CopiesPublishToTheSameQueueInOrderWithTheirOwnReference) {
  Poco::NotificationQueue queue;
  NyEvent::Publisher const publisher(queue);
  NyEvent::Publisher const copy = publisher;

  Poco::AutoPtr<Poco::Notification> first(new Note(1));
  publisher.Publish(first);
  EXPECT_EQ(first->referenceCount(), 2);  // the caller's and the queue's
  copy.Publish(new Note(2));
  EXPECT_EQ(queue.size(), 2);

  Poco::AutoPtr<Poco::Notification> got(queue.dequeueNotification());
  EXPECT_EQ(got.get(), first.get());
  got = queue.dequeueNotification();
  EXPECT_EQ(got.cast<Note>()->number, 2);
  EXPECT_EQ(got->referenceCount(), 1);  // the queue let go of it
}

}  // namespace
