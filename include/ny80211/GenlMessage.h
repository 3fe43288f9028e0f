#pragma once
// GenlMessage: one generic netlink message (a command on its way to nl80211,
// a reply, an event) with its attribute stream and an optional debug text.
// Nl80211Command: an outgoing command that owns its libnl message.

#include <cstdint>
#include <memory>
#include <string>

#include "ny80211/AttrStream.h"
#include "ny80211/Export.h"

struct nl_msg;
struct genlmsghdr;

namespace Ny80211 {

class CommandSocket;

// An access token only T can make: an operation taking Badge<T> can be
// called by T alone.
template <class T>
class Badge {
  friend T;
  Badge() = default;
};

// The debug text of a message: says in words what it is for.
class NY80211_API DebugRecord {
 public:
  explicit DebugRecord(std::string text) : text(std::move(text)) {}
  DebugRecord(DebugRecord const&) = default;
  DebugRecord& operator=(DebugRecord const&) = default;
  DebugRecord(DebugRecord&&) = default;
  DebugRecord& operator=(DebugRecord&&) = default;
  virtual ~DebugRecord();
  std::string text;
};

class NY80211_API GenlMessage {
 public:
  GenlMessage();
  // Wraps msg (not owned) and indexes its attributes; Error "message too
  // short ({} < {})" when it can't hold the generic netlink header.
  explicit GenlMessage(nl_msg* msg);
  GenlMessage(GenlMessage&&) noexcept;
  GenlMessage& operator=(GenlMessage&&) noexcept;
  GenlMessage(GenlMessage const&) = delete;
  GenlMessage& operator=(GenlMessage const&) = delete;
  virtual ~GenlMessage();

  void setupAttributeStream();
  genlmsghdr* genlHeader();
  genlmsghdr const* genlHeader() const;
  unsigned int sequenceNumber() const;
  unsigned char commandID() const;
  std::string commandName() const;
  nl_msg* toNlMsg() const noexcept { return message_; }
  AttrStream& attributes() noexcept { return attributes_; }
  AttrStream const& attributes() const noexcept { return attributes_; }

  // The debug text, or "<no debug info>".
  std::string debugInfoString() const;
  // Marks the debug text "[ACK] "; a message without one stays as it is.
  void setAckReceived(Badge<CommandSocket>);
  // Stamps the generic netlink family (cut to 16 bits) into nlmsg_type.
  void setGenlFamilyID(Badge<CommandSocket>, int familyID);

 protected:
  void setMessage(nl_msg* msg);
  void setDebugInfo(std::string text);

 private:
  nl_msg* message_ = nullptr;
  AttrStream attributes_;
  std::unique_ptr<DebugRecord> debug_;
};

// The name of an nl80211 command ("NL80211_CMD_GET_WIPHY"), or
// "<command type {}>" for a number past the table.
NY80211_API std::string cmd_fmt(std::uint8_t command);

// An nl80211 command to send: allocates its message with the generic
// netlink header (command, flags such as NLM_F_DUMP), carries the debug text
// the socket quotes in errors, and frees the message when it goes. Write the
// attributes through attributes().
class NY80211_API Nl80211Command : public GenlMessage {
 public:
  Nl80211Command(std::uint8_t command, std::string debugText, int flags = 0);
  // A dump request (NLM_F_DUMP) of the command.
  static Nl80211Command dump(std::uint8_t command, std::string debugText);
  Nl80211Command(Nl80211Command&&) noexcept;
  Nl80211Command& operator=(Nl80211Command&&) noexcept;
  Nl80211Command(Nl80211Command const&) = delete;
  Nl80211Command& operator=(Nl80211Command const&) = delete;
  ~Nl80211Command() override;

 private:
  struct MessageDeleter {
    void operator()(nl_msg* msg) const noexcept;
  };
  std::unique_ptr<nl_msg, MessageDeleter> owned_;
};

}  // namespace Ny80211
