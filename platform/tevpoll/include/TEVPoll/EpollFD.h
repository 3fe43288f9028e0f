#pragma once
// TEVPoll: an epoll instance, descriptor registrations with callbacks, and an
// eventfd to wake the thread that waits.

#include <cstdint>
#include <functional>
#include <memory>

namespace TEVPoll {

// Called with the registration's user pointer and the epoll event mask.
using Callback = std::function<void(void* user, std::uint32_t events)>;

namespace detail {
struct EpollState;
struct Registration;
}  // namespace detail

class EpollFD {
 public:
  EpollFD();  // throws std::system_error
  ~EpollFD();
  EpollFD(EpollFD const&) = delete;
  EpollFD& operator=(EpollFD const&) = delete;

  int GetFD() const noexcept;
  // Blocks until at least one registered descriptor is ready (a signal does
  // not end the wait), then runs the callbacks of the ready ones. A callback
  // may destroy its own or any other association; a destroyed association's
  // callback is not run afterwards.
  void Wait();

 private:
  friend class EpollAssociation;
  std::shared_ptr<detail::EpollState> state_;
};

// Registers one descriptor (not owned) with an EpollFD; deregisters on
// destruction. Starts with no events enabled. The EpollFD may go first.
class EpollAssociation {
 public:
  EpollAssociation(EpollFD& epoll, int fd, Callback callback, void* user);
  ~EpollAssociation();
  EpollAssociation(EpollAssociation&& other) noexcept;
  EpollAssociation& operator=(EpollAssociation&& other) noexcept;
  EpollAssociation(EpollAssociation const&) = delete;
  EpollAssociation& operator=(EpollAssociation const&) = delete;

  void EnableRead(bool enable);  // throws std::system_error
  int GetFD() const noexcept;

 private:
  void release() noexcept;

  std::shared_ptr<detail::EpollState> state_;
  std::shared_ptr<detail::Registration> registration_;
  std::uint64_t id_ = 0;
};

}  // namespace TEVPoll
