#include "TEVPoll/EpollFD.h"

#include <array>
#include <mutex>
#include <stdexcept>
#include <unordered_map>

#include <sys/epoll.h>

#include "Descriptor.h"

namespace TEVPoll {
namespace detail {

struct Registration {
  int fd;
  Callback callback;
  void* user;
};

// Shared by the EpollFD and its associations, so that either may be destroyed
// first. epoll_event.data carries a registration id, never a pointer: an event
// of a registration removed during the same Wait() finds nothing and is
// skipped.
struct EpollState {
  int fd = -1;
  std::mutex mutex;
  std::unordered_map<std::uint64_t, std::shared_ptr<Registration>> registrations;
  std::uint64_t nextId = 1;

  std::shared_ptr<Registration> lookup(std::uint64_t id) {
    std::lock_guard lock(mutex);
    auto const it = registrations.find(id);
    return it == registrations.end() ? nullptr : it->second;
  }
};

}  // namespace detail

EpollFD::EpollFD() : state_(std::make_shared<detail::EpollState>()) {
  state_->fd = ::epoll_create1(EPOLL_CLOEXEC);
  if (state_->fd < 0) detail::throwErrno("epoll_create1");
}

EpollFD::~EpollFD() {
  std::lock_guard lock(state_->mutex);
  detail::closeDescriptor(state_->fd);
  state_->fd = -1;
}

int EpollFD::GetFD() const noexcept { return state_->fd; }

void EpollFD::Wait() {
  std::array<epoll_event, 16> ready{};
  int count = 0;
  do {
    count = ::epoll_wait(state_->fd, ready.data(), static_cast<int>(ready.size()), -1);
  } while (count < 0 && errno == EINTR);
  if (count < 0) detail::throwErrno("epoll_wait");

  for (int i = 0; i < count; ++i) {
    // The copy keeps the callback alive while it runs, even if it destroys
    // its own association.
    if (auto registration = state_->lookup(ready[i].data.u64)) {
      registration->callback(registration->user, ready[i].events);
    }
  }
}

EpollAssociation::EpollAssociation(EpollFD& epoll, int fd, Callback callback, void* user)
    : state_(epoll.state_),
      registration_(std::make_shared<detail::Registration>(
          detail::Registration{fd, std::move(callback), user})) {
  std::lock_guard lock(state_->mutex);
  id_ = state_->nextId++;  // NOLINT(cppcoreguidelines-prefer-member-initializer): under the lock
  epoll_event event{};
  event.data.u64 = id_;
  if (::epoll_ctl(state_->fd, EPOLL_CTL_ADD, fd, &event) < 0) detail::throwErrno("epoll_ctl add");
  state_->registrations.emplace(id_, registration_);
}

EpollAssociation::~EpollAssociation() { release(); }

EpollAssociation::EpollAssociation(EpollAssociation&& other) noexcept
    : state_(std::move(other.state_)),
      registration_(std::move(other.registration_)),
      id_(other.id_) {}

EpollAssociation& EpollAssociation::operator=(EpollAssociation&& other) noexcept {
  if (this != &other) {
    release();
    state_ = std::move(other.state_);
    registration_ = std::move(other.registration_);
    id_ = other.id_;
  }
  return *this;
}

int EpollAssociation::GetFD() const noexcept { return registration_ ? registration_->fd : -1; }

void EpollAssociation::EnableRead(bool enable) {
  if (!registration_) throw std::logic_error("EnableRead on a moved-from EpollAssociation");
  std::lock_guard lock(state_->mutex);
  epoll_event event{};
  event.events = enable ? std::uint32_t{EPOLLIN} : 0u;
  event.data.u64 = id_;
  if (::epoll_ctl(state_->fd, EPOLL_CTL_MOD, registration_->fd, &event) < 0) {
    detail::throwErrno("epoll_ctl mod");
  }
}

void EpollAssociation::release() noexcept {
  if (!registration_) return;
  {
    std::lock_guard lock(state_->mutex);
    state_->registrations.erase(id_);
    // The descriptor may be closed already, or the epoll instance gone:
    // nothing is left to deregister then.
    if (state_->fd >= 0) ::epoll_ctl(state_->fd, EPOLL_CTL_DEL, registration_->fd, nullptr);
  }
  registration_.reset();
  // Last: when the epoll instance is gone, this may destroy the state and
  // its mutex, which must not be held then.
  state_.reset();
}

}  // namespace TEVPoll
