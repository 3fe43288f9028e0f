#include "ny80211/GenlMessage.h"

#include <fmt/format.h>
#include <netlink/genl/genl.h>
#include <netlink/msg.h>

#include "ny80211/Error.h"

namespace Ny80211 {

DebugRecord::~DebugRecord() = default;

GenlMessage::GenlMessage() = default;

GenlMessage::GenlMessage(nl_msg* msg) : message_(msg) { setupAttributeStream(); }

GenlMessage::GenlMessage(GenlMessage&&) noexcept = default;
GenlMessage& GenlMessage::operator=(GenlMessage&&) noexcept = default;
GenlMessage::~GenlMessage() = default;

void GenlMessage::setupAttributeStream() {
  // A runt message (a peer's, never the kernel's) would give a negative
  // attribute length and a command byte past its end.
  auto const length = nlmsg_hdr(message_)->nlmsg_len;
  auto const needed = NLMSG_HDRLEN + GENL_HDRLEN;
  if (length < needed) throw Error(fmt::format("message too short ({} < {})", length, needed));
  // The attributes follow the family header directly (no user header).
  auto* attrs = reinterpret_cast<nlattr*>(reinterpret_cast<char*>(genlHeader()) + GENL_HDRLEN);
  attributes_.setTo(message_, attrs, length - needed, 4);
}

genlmsghdr* GenlMessage::genlHeader() {
  return static_cast<genlmsghdr*>(nlmsg_data(nlmsg_hdr(message_)));
}

genlmsghdr const* GenlMessage::genlHeader() const {
  return static_cast<genlmsghdr const*>(nlmsg_data(nlmsg_hdr(message_)));
}

unsigned int GenlMessage::sequenceNumber() const { return nlmsg_hdr(message_)->nlmsg_seq; }

unsigned char GenlMessage::commandID() const { return genlHeader()->cmd; }

std::string GenlMessage::commandName() const { return cmd_fmt(commandID()); }

std::string GenlMessage::debugInfoString() const {
  return debug_ ? debug_->text : "<no debug info>";
}

void GenlMessage::setAckReceived(Badge<CommandSocket>) {
  // A message without a debug text has nothing to mark.
  if (debug_) debug_->text.insert(0, "[ACK] ");
}

void GenlMessage::setGenlFamilyID(Badge<CommandSocket>, int familyID) {
  nlmsg_hdr(message_)->nlmsg_type = static_cast<std::uint16_t>(familyID);
}

void GenlMessage::setMessage(nl_msg* msg) {
  message_ = msg;
  setupAttributeStream();
}

void GenlMessage::setDebugInfo(std::string text) {
  debug_ = std::make_unique<DebugRecord>(std::move(text));
}

void Nl80211Command::MessageDeleter::operator()(nl_msg* msg) const noexcept { nlmsg_free(msg); }

Nl80211Command::Nl80211Command(std::uint8_t command, std::string debugText, int flags)
    : owned_(nlmsg_alloc()) {
  if (!owned_) throw Error("netlink message allocation failed");
  // The family is stamped by the command socket when it sends.
  if (genlmsg_put(owned_.get(), NL_AUTO_PORT, NL_AUTO_SEQ, 0, 0, flags, command, 0) == nullptr) {
    throw Error("generic netlink header does not fit the message");
  }
  setMessage(owned_.get());
  setDebugInfo(std::move(debugText));
}

Nl80211Command Nl80211Command::dump(std::uint8_t command, std::string debugText) {
  return Nl80211Command(command, std::move(debugText), NLM_F_DUMP);
}

Nl80211Command::Nl80211Command(Nl80211Command&&) noexcept = default;
Nl80211Command& Nl80211Command::operator=(Nl80211Command&&) noexcept = default;
Nl80211Command::~Nl80211Command() = default;

}  // namespace Ny80211
