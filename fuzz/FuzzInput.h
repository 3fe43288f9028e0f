#pragma once
// What the fuzz targets share: reading an input, framing it as the netlink
// message an entry point receives, and a log sink.
//
// The first byte of an input chooses its mode. Framed (even): libnl writes
// plausible headers and the input supplies what follows them. Raw (odd): the
// rest of the input is the whole buffer, headers included, held to what libnl
// guarantees a handler (a message of at least a header, no longer than what
// arrived). Either way the bytes the library may read sit in a heap buffer of
// exactly their size, so that AddressSanitizer sees any read past them.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <netlink/genl/genl.h>
#include <netlink/msg.h>
#include <sys/socket.h>

#include "trace/Trace.h"

namespace Ny80211::fuzz {

// Built from a range, a vector allocates exactly its size.
using Bytes = std::vector<std::uint8_t>;

// Reads an input front to back; past its end every read gives zeros.
class Input {
 public:
  Input(std::uint8_t const* data, std::size_t size) : data_(data), size_(size) {}

  template <class T>
  T value() {
    T v{};
    auto const n = std::min(sizeof v, size_ - at_);
    if (n != 0) std::memcpy(&v, data_ + at_, n);
    at_ += n;
    return v;
  }
  std::uint8_t byte() { return value<std::uint8_t>(); }
  Bytes take(std::size_t count) {
    auto const n = std::min(count, size_ - at_);
    Bytes bytes(data_ + at_, data_ + at_ + n);
    at_ += n;
    return bytes;
  }
  Bytes rest() { return take(size_ - at_); }

 private:
  std::uint8_t const* data_;
  std::size_t size_;
  std::size_t at_ = 0;
};

// The mode byte.
inline bool isRaw(Input& input) { return (input.byte() & 1) != 0; }

// An owned libnl message; empty when the input does not make one.
class Message {
 public:
  Message() = default;
  explicit Message(nl_msg* msg) : msg_(msg) {}
  ~Message() {
    if (msg_ != nullptr) nlmsg_free(msg_);
  }
  Message(Message&& other) noexcept : msg_(std::exchange(other.msg_, nullptr)) {}
  Message& operator=(Message&& other) noexcept {
    std::swap(msg_, other.msg_);
    return *this;
  }
  Message(Message const&) = delete;
  Message& operator=(Message const&) = delete;

  nl_msg* get() const { return msg_; }
  explicit operator bool() const { return msg_ != nullptr; }

 private:
  nl_msg* msg_ = nullptr;
};

[[noreturn]] inline void fail(std::string_view what) {
  std::fprintf(stderr, "fuzz target check failed: %.*s\n", static_cast<int>(what.size()),
               what.data());
  std::abort();
}

// Bytes appended to the message without padding, so that it ends where they
// do.
inline Message appended(Message message, Bytes const& bytes) {
  if (!bytes.empty() &&
      // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): nlmsg_append only reads them
      nlmsg_append(message.get(), const_cast<std::uint8_t*>(bytes.data()), bytes.size(), 0) != 0) {
    fail("appended bytes do not fit");
  }
  return message;
}

// A generic netlink message of the command: headers, then attrs. Any family
// number will do: no handler looks at it.
inline Message genlMessage(std::uint8_t command, Bytes const& attrs) {
  constexpr int family = 0x1c;
  Message message(nlmsg_alloc_size(NLMSG_HDRLEN + GENL_HDRLEN + attrs.size()));
  if (!message ||
      genlmsg_put(message.get(), NL_AUTO_PORT, NL_AUTO_SEQ, family, 0, 0, command, 0) == nullptr) {
    fail("generic netlink header does not fit");
  }
  return appended(std::move(message), attrs);
}

// An RTM_NEWLINK message: headers and ifinfomsg, then attrs.
inline Message linkMessage(Bytes const& attrs) {
  Message message(nlmsg_alloc_size(NLMSG_HDRLEN + NLMSG_ALIGN(sizeof(ifinfomsg)) + attrs.size()));
  ifinfomsg info{};
  info.ifi_family = AF_UNSPEC;
  info.ifi_index = 7;
  if (!message ||
      nlmsg_put(message.get(), NL_AUTO_PORT, NL_AUTO_SEQ, RTM_NEWLINK, 0, 0) == nullptr ||
      nlmsg_append(message.get(), &info, sizeof info, NLMSG_ALIGNTO) != 0) {
    fail("link header does not fit");
  }
  return appended(std::move(message), attrs);
}

// The length of the leading netlink message of bytes, as libnl hands a
// received one on: only when its nlmsg_len covers a netlink header and no
// more than bytes hold (0 otherwise).
inline std::size_t rawMessageLength(Bytes const& bytes, std::size_t minimum = NLMSG_HDRLEN) {
  if (bytes.size() < NLMSG_HDRLEN) return 0;
  nlmsghdr header{};
  std::memcpy(&header, bytes.data(), sizeof header);
  if (header.nlmsg_len < minimum || header.nlmsg_len > bytes.size()) return 0;
  return header.nlmsg_len;
}

// Those bytes.
inline Bytes rawMessageBytes(Bytes const& bytes, std::size_t minimum = NLMSG_HDRLEN) {
  auto const length = rawMessageLength(bytes, minimum);
  return Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length));
}

// The same as a libnl message.
inline Message rawMessage(Bytes const& bytes) {
  auto const length = rawMessageLength(bytes);
  if (length == 0) return {};
  Message message(nlmsg_alloc_size(length));
  if (!message) fail("message allocation failed");
  std::memcpy(nlmsg_hdr(message.get()), bytes.data(), length);
  return message;
}

// A generic netlink message in either mode:
//   framed: [0] [command] attributes...
//   raw:    [1] message... (netlink and generic netlink headers included)
inline Message genlInput(Input& input) {
  if (isRaw(input)) return rawMessage(input.rest());
  auto const command = input.byte();
  return genlMessage(command, input.rest());
}

// Every log line is formatted (a sink makes every level enabled), counted and
// dropped; printed too when NY80211_FUZZ_LOG is set, to look at a reproducer.
class CountingSink final : public trace::Sink {
 public:
  void line(trace::Provider, trace::Level level, std::string_view text) noexcept override {
    ++lines_;
    if (print_) {
      auto const levelName = trace::name(level);
      std::fprintf(stderr, "%.*s: %.*s\n", static_cast<int>(levelName.size()), levelName.data(),
                   static_cast<int>(text.size()), text.data());
    }
  }
  std::size_t lines() const { return lines_; }

 private:
  std::size_t lines_ = 0;
  bool print_ = std::getenv("NY80211_FUZZ_LOG") != nullptr;
};

// Installed on first use and for the whole run.
inline CountingSink& logSink() {
  static CountingSink sink;
  static bool const installed = (trace::setSink(&sink), true);
  static_cast<void>(installed);
  return sink;
}

}  // namespace Ny80211::fuzz
