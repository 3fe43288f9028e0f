#pragma once

#include "TEVPoll/EpollFD.h"

namespace TEVPoll {

// An eventfd registered for reading on an EpollFD: Trigger(), from any
// thread, makes the waiting thread run the callback once per wake-up.
class EventFD {
 public:
  EventFD(EpollFD& epoll, Callback callback, void* user);  // throws std::system_error
  ~EventFD();
  EventFD(EventFD&& other) noexcept;
  EventFD& operator=(EventFD&& other) noexcept;
  EventFD(EventFD const&) = delete;
  EventFD& operator=(EventFD const&) = delete;

  void Trigger();  // throws std::system_error

 private:
  int fd_ = -1;
  std::unique_ptr<EpollAssociation> association_;
};

}  // namespace TEVPoll
