#pragma once
// The two sides of an event row. The library's decoder reads the message and
// publishes its event; the baseline parses the message its own way and
// enqueues one plain notification. Both queues are drained after each item,
// as the daemon's consumer would, so that memory stays flat; nobody listens
// to the log.

#include <memory>
#include <string>
#include <typeinfo>

#include <Poco/AutoPtr.h>
#include <Poco/Notification.h>
#include <Poco/NotificationQueue.h>
#include <benchmark/benchmark.h>
#include <netlink/msg.h>

#include "Bench.h"
#include "NyEvent/Publisher.h"
#include "TraceCapture.h"
#include "trace/Trace.h"

namespace bench {

// A reference of its own to a libnl message, whoever built it.
class MessageRef {
 public:
  explicit MessageRef(nl_msg* message) : msg(message) { nlmsg_get(msg); }
  ~MessageRef() { nlmsg_free(msg); }
  MessageRef(MessageRef const&) = delete;
  MessageRef& operator=(MessageRef const&) = delete;

  nl_msg* const msg;
};

// Takes every event off the queue and lets it go, as the daemon would.
inline void drain(Poco::NotificationQueue& queue) {
  while (auto* event = queue.dequeueNotification()) event->release();
}

// Decoder is a decoder type of the library.
template <class Decoder>
class DecoderWork final : public Work {
 public:
  DecoderWork(nl_msg* message, std::type_info const& expected, std::string const& row)
      : message_(message) {
    // Once with the log captured: one event of the expected type, and no
    // line but its own.
    Ny80211::testing::TraceCapture const lines;
    decoder_(message_.msg);
    Poco::AutoPtr<Poco::Notification> const event(queue_.dequeueNotification());
    Poco::Notification const* const published = event.get();
    check(published != nullptr && typeid(*published) == expected && queue_.size() == 0,
          row + ": the decoder published no event of the expected type");
    auto const logged = lines.lines();
    check(logged.size() == 1 && logged[0].level == Ny80211::trace::Level::Info,
          row + ": the decoder logged a failure");
  }

  void item() override {
    decoder_(message_.msg);
    drain(queue_);
  }

 private:
  MessageRef const message_;
  Poco::NotificationQueue queue_;
  Decoder const decoder_{NyEvent::Publisher(queue_)};
};

// Parse is a callable bool(nl_msg*): whether the message parsed as
// expected.
template <class Parse>
class ParseWork final : public Work {
 public:
  ParseWork(nl_msg* message, Parse parse, std::string const& row)
      : message_(message), parse_(parse) {
    check(parse_(message_.msg), row + ": the baseline could not parse the message");
  }

  void item() override {
    benchmark::DoNotOptimize(parse_(message_.msg));
    queue_.enqueueNotification(new Poco::Notification);
    drain(queue_);
  }

 private:
  MessageRef const message_;
  Parse const parse_;
  Poco::NotificationQueue queue_;
};

}  // namespace bench
