#include "TEVPoll/EventFD.h"

#include <cstdint>
#include <utility>

#include <sys/eventfd.h>

#include "Descriptor.h"

namespace TEVPoll {

EventFD::EventFD(EpollFD& epoll, Callback callback, void* user)
    : fd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (fd_ < 0) detail::throwErrno("eventfd");
  try {
    // Captures the descriptor, not this, so that the EventFD stays movable.
    association_ = std::make_unique<EpollAssociation>(
        epoll, fd_,
        [fd = fd_, callback = std::move(callback)](void* userPtr, std::uint32_t events) {
          std::uint64_t count = 0;
          // Drains every trigger so far; level-triggered epoll would spin otherwise.
          while (::read(fd, &count, sizeof count) < 0 && errno == EINTR) {
          }
          callback(userPtr, events);
        },
        user);
    association_->EnableRead(true);
  } catch (...) {
    association_.reset();
    detail::closeDescriptor(fd_);
    throw;
  }
}

EventFD::~EventFD() {
  association_.reset();  // deregister before the descriptor goes
  detail::closeDescriptor(fd_);
}

EventFD::EventFD(EventFD&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)), association_(std::move(other.association_)) {}

EventFD& EventFD::operator=(EventFD&& other) noexcept {
  if (this != &other) {
    association_.reset();
    detail::closeDescriptor(fd_);
    fd_ = std::exchange(other.fd_, -1);
    association_ = std::move(other.association_);
  }
  return *this;
}

void EventFD::Trigger() {
  std::uint64_t const one = 1;
  while (::write(fd_, &one, sizeof one) < 0) {
    if (errno == EINTR) continue;
    // The counter is saturated: a wake-up is pending anyway.
    if (errno == EAGAIN) return;
    detail::throwErrno("eventfd write");
  }
}

}  // namespace TEVPoll
