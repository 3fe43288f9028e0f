#pragma once
// Context: what a daemon creates first. It holds the command socket, the two
// event sockets and the epoll instance they are read from, and runs the one
// event-loop thread on which events are decoded and published.

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "NyEvent/Publisher.h"
#include "TEVPoll/EpollFD.h"
#include "TEVPoll/EventFD.h"
#include "ny80211/EventSocket.h"
#include "ny80211/Export.h"
#include "ny80211/Socket.h"

namespace Ny80211 {

class NY80211_API Context {
 public:
  // Connects nothing. Throws std::system_error when epoll or eventfd fail.
  Context();
  // Stops a running loop first; a loop that can't be stopped ends the process.
  virtual ~Context();  // NOLINT(bugprone-exception-escape): on purpose
  Context(Context const&) = delete;
  Context& operator=(Context const&) = delete;

  virtual void connectCommands();
  // Joins the named nl80211 multicast groups ("config", "scan", ...).
  virtual void connectEventsNl80211(NyEvent::Publisher publisher, std::vector<std::string> groups);
  virtual void connectEventsWext(NyEvent::Publisher publisher);
  // Starts the loop thread with every signal blocked; it takes the event
  // sockets with it. Error "no event socket connected", "event loop already
  // running".
  virtual void startEventLoop();
  // Wakes the loop thread and joins it; the event sockets end with it.
  // Error "can't stop event loop" when no loop runs.
  virtual void stopEventLoop();

  // Commands may be sent from any thread, also while the loop runs.
  CommandSocket& commands() noexcept { return commands_; }

 private:
  CommandSocket commands_;
  Nl80211EventSocket nl80211Events_;
  WextEventSocket wextEvents_;
  std::thread loop_;
  std::atomic<bool> running_{false};
  TEVPoll::EpollFD epoll_;
  TEVPoll::EventFD wakeUp_;
};

}  // namespace Ny80211
