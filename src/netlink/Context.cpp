#include "ny80211/Context.h"

#include <csignal>
#include <utility>

#include <pthread.h>

#include "ny80211/Error.h"

namespace Ny80211 {

Context::Context()
    : wakeUp_(
          epoll_, [this](void*, std::uint32_t) { running_.store(false); }, nullptr) {}

// NOLINTNEXTLINE(bugprone-exception-escape): on purpose, as said below
Context::~Context() {
  // An exception here ends the process: a loop that can't be stopped would
  // outlive the objects it uses.
  if (loop_.joinable()) stopEventLoop();
}

void Context::connectCommands() { commands_.connect(); }

void Context::connectEventsNl80211(NyEvent::Publisher publisher, std::vector<std::string> groups) {
  nl80211Events_.connect(epoll_, publisher, std::move(groups));
}

void Context::connectEventsWext(NyEvent::Publisher publisher) {
  wextEvents_.connect(epoll_, publisher);
}

void Context::startEventLoop() {
  // Running first: the sockets of a running loop are with its thread.
  if (loop_.joinable()) throw Error("event loop already running");
  if (!nl80211Events_.isConnected() && !wextEvents_.isConnected()) {
    throw Error("no event socket connected");
  }

  // The thread inherits this mask: it never runs a signal handler, so the
  // daemon's handlers stay on the daemon's threads.
  sigset_t all;
  sigset_t previous;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &previous);
  running_.store(true);
  try {
    // The sockets go with the thread and end with it.
    loop_ = std::thread(
        [nl80211 = std::move(nl80211Events_), wext = std::move(wextEvents_), this]() mutable {
          while (running_.load()) epoll_.Wait();
        });
  } catch (...) {
    running_.store(false);
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    throw;
  }
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

void Context::stopEventLoop() {
  if (!loop_.joinable()) throw Error("can't stop event loop");
  wakeUp_.Trigger();
  loop_.join();
}

}  // namespace Ny80211
