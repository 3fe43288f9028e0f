#include "ny80211/AttrStream.h"

#include <cstring>
#include <utility>

#include <fmt/format.h>
#include <netlink/attr.h>
#include <netlink/msg.h>

#include "netlink/AttrWalk.h"
#include "ny80211/Error.h"

namespace Ny80211 {

using detail::forEachValid;
using detail::typeOf;

AttrStream::AttrStream() = default;

AttrStream::AttrStream(nl_msg* msg, nlattr* head, unsigned long length) {
  setTo(msg, head, length, 4);
}

AttrStream::AttrStream(nlattr const* attr) {
  setTo(nullptr, static_cast<nlattr*>(nla_data(attr)), static_cast<unsigned long>(nla_len(attr)),
        0);
}

AttrStream::AttrStream(AttrStream const&) = default;
AttrStream& AttrStream::operator=(AttrStream const&) = default;
AttrStream::AttrStream(AttrStream&&) noexcept = default;
AttrStream& AttrStream::operator=(AttrStream&&) noexcept = default;
AttrStream::~AttrStream() = default;

inline void AttrStream::note(int type, nlattr const* attr) noexcept {
  if (type < directTypes) {
    if (first_[type] != 0) return;
    auto const units =
        (reinterpret_cast<char const*>(attr) - reinterpret_cast<char const*>(head_)) / 4;
    if (units < 0xffff) {
      first_[type] = static_cast<std::uint16_t>(units + 1);
    } else {
      far_ = true;  // past 256 KiB into the stream: the walk finds it
    }
  } else if (type < seenTypes) {
    seen_[type / 64] |= std::uint64_t{1} << (type % 64);
  }
}

void AttrStream::setTo(nl_msg* msg, nlattr* head, unsigned long length,
                       unsigned long headerLength) {
  message_ = msg;
  head_ = head;
  length_ = static_cast<long>(length);
  headerLength_ = headerLength;
  first_.fill(0);
  seen_.fill(0);
  far_ = false;
  size_ = 0;
  forEachValid(head_, length_, [this](nlattr* attr) {
    ++size_;
    note(typeOf(attr), attr);
    return false;
  });
}

nlattr* AttrStream::tryFind(int type) const noexcept {
  if (type < 0) return nullptr;
  if (type < directTypes) {
    if (first_[type] != 0) {
      return reinterpret_cast<nlattr*>(reinterpret_cast<char*>(head_) +
                                       std::ptrdiff_t{first_[type] - 1} * 4);
    }
    if (!far_) return nullptr;
  } else if (type < seenTypes && (seen_[type / 64] & (std::uint64_t{1} << (type % 64))) == 0) {
    return nullptr;
  }
  return forEachValid(head_, length_, [type](nlattr* attr) { return typeOf(attr) == type; });
}

nlattr* AttrStream::find(int type) const {
  auto* attr = tryFind(type);
  if (attr == nullptr) throw AttrNotFound(fmt::format("attribute not found (type {})", type));
  return attr;
}

void AttrStream::forEachAttr(std::function<void(nlattr const*)> const& f) const {
  forEachValid(head_, length_, [&](nlattr* attr) {
    f(attr);
    return false;
  });
}

void AttrStream::forEachAttr(std::function<void(nlattr*)> const& f) {
  forEachValid(head_, length_, [&](nlattr* attr) {
    f(attr);
    return false;
  });
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the exported signature
void AttrStream::append(int type, std::function<int(nl_msg*)> writer) {
  if (has(type)) throw Error("attribute already exists");
  if (message_ == nullptr)
    throw Error(fmt::format("attribute (type {}) added to a stream without message", type));
  if (writer(message_) != 0) throw Error("failed to add attribute");
  length_ = nlmsg_attrlen(nlmsg_hdr(message_), static_cast<int>(headerLength_));
  auto* attr = nla_find(head_, static_cast<int>(length_), type);
  if (attr == nullptr) throw Error("added attribute not found");
  ++size_;
  note(type, attr);
}

namespace {

int putBytes(nl_msg* msg, int type, void const* data, std::size_t size) {
  return nla_put(msg, type, static_cast<int>(size), data);
}

}  // namespace

template <class T>
void AttrStream::addInternal(int type, T const& value) {
  if constexpr (std::is_same_v<T, bool>) {
    // false writes nothing, not even the duplicate check.
    if (value) append(type, [&](nl_msg* msg) { return nla_put_flag(msg, type); });
  } else if constexpr (std::is_same_v<T, unsigned char>) {
    append(type, [&](nl_msg* msg) { return nla_put_u8(msg, type, value); });
  } else if constexpr (std::is_same_v<T, unsigned short>) {
    append(type, [&](nl_msg* msg) { return nla_put_u16(msg, type, value); });
  } else if constexpr (std::is_same_v<T, unsigned int>) {
    append(type, [&](nl_msg* msg) { return nla_put_u32(msg, type, value); });
  } else if constexpr (std::is_same_v<T, unsigned long>) {
    append(type, [&](nl_msg* msg) { return nla_put_u64(msg, type, value); });
  } else if constexpr (std::is_same_v<T, std::string>) {
    append(type, [&](nl_msg* msg) { return nla_put_string(msg, type, value.c_str()); });
  } else if constexpr (std::is_same_v<T, std::array<std::byte, 6>>) {
    append(type, [&](nl_msg* msg) { return putBytes(msg, type, value.data(), value.size()); });
  } else if constexpr (std::is_same_v<T, MacAddress>) {
    append(type, [&](nl_msg* msg) { return putBytes(msg, type, value.data(), value.size()); });
  } else if constexpr (std::is_same_v<T, nycpp::span<const std::byte>>) {
    append(type, [&](nl_msg* msg) { return putBytes(msg, type, value.data(), value.size()); });
  } else if constexpr (std::is_same_v<T, std::vector<unsigned int>>) {
    append(type, [&](nl_msg* msg) {
      auto* nest = nla_nest_start(msg, type);
      if (nest == nullptr) return -1;
      // Only the nest's end reports: a full message shows up there.
      for (std::size_t i = 0; i < value.size(); ++i) {
        nla_put_u32(msg, static_cast<int>(i), value[i]);
      }
      // nla_nest_end would drop an empty nest; an empty list is still written.
      return nla_nest_end_keep_empty(msg, nest);
    });
  } else if constexpr (std::is_same_v<T, NestedAttr>) {
    append(type, [&](nl_msg* msg) { return nla_put_nested(msg, type, value.ownMessage()); });
  } else {
    static_assert(sizeof(T) == 0, "no attribute writer for this type");
  }
}

template void AttrStream::addInternal<unsigned char>(int, unsigned char const&);
template void AttrStream::addInternal<unsigned short>(int, unsigned short const&);
template void AttrStream::addInternal<unsigned int>(int, unsigned int const&);
template void AttrStream::addInternal<unsigned long>(int, unsigned long const&);
template void AttrStream::addInternal<bool>(int, bool const&);
template void AttrStream::addInternal<std::string>(int, std::string const&);
template void AttrStream::addInternal<std::array<std::byte, 6>>(int,
                                                                std::array<std::byte, 6> const&);
template void AttrStream::addInternal<MacAddress>(int, MacAddress const&);
template void AttrStream::addInternal<nycpp::span<const std::byte>>(
    int, nycpp::span<const std::byte> const&);
template void AttrStream::addInternal<std::vector<unsigned int>>(int,
                                                                 std::vector<unsigned int> const&);
template void AttrStream::addInternal<NestedAttr>(int, NestedAttr const&);

void AttrStream::addNested(int type, NestedAttr const& nested) {
  addInternal<NestedAttr>(type, nested);
}

std::uint8_t AttrStream::getU8(int type) const { return Ny80211::getU8(find(type)); }
std::uint16_t AttrStream::getU16(int type) const { return Ny80211::getU16(find(type)); }
std::uint32_t AttrStream::getU32(int type) const { return Ny80211::getU32(find(type)); }
std::uint64_t AttrStream::getU64(int type) const { return Ny80211::getU64(find(type)); }
std::string AttrStream::getString(int type) const { return Ny80211::getString(find(type)); }
MacAddress AttrStream::getMac(int type) const { return Ny80211::getMac(find(type)); }
nycpp::span<const std::byte> AttrStream::getBytes(int type) const {
  return Ny80211::getBytes(find(type));
}
std::vector<NestedAttr> AttrStream::getNestedList(int type) const {
  return readNestedList(*this, find(type));
}

std::optional<std::uint8_t> AttrStream::tryGetU8(int type) const {
  auto const* attr = tryFind(type);
  if (attr == nullptr) return std::nullopt;
  return Ny80211::getU8(attr);
}

std::optional<std::uint32_t> AttrStream::tryGetU32(int type) const {
  auto const* attr = tryFind(type);
  if (attr == nullptr) return std::nullopt;
  return Ny80211::getU32(attr);
}

std::optional<std::uint64_t> AttrStream::tryGetU64(int type) const {
  auto const* attr = tryFind(type);
  if (attr == nullptr) return std::nullopt;
  return Ny80211::getU64(attr);
}

NestedAttr::NestedAttr(nl_msg* ownMessage) : ownMessage_(ownMessage) {
  if (ownMessage_ == nullptr) return;
  auto* header = nlmsg_hdr(ownMessage_);
  setTo(ownMessage_, static_cast<nlattr*>(nlmsg_data(header)),
        static_cast<unsigned long>(nlmsg_attrlen(header, 0)), 0);
}

NestedAttr::NestedAttr(NestedAttr&& other) noexcept
    : AttrStream(std::move(other)), ownMessage_(std::exchange(other.ownMessage_, nullptr)) {}

NestedAttr& NestedAttr::operator=(NestedAttr&& other) noexcept {
  if (this != &other) {
    if (ownMessage_ != nullptr) nlmsg_free(ownMessage_);
    ownMessage_ = std::exchange(other.ownMessage_, nullptr);
    AttrStream::operator=(std::move(other));
  }
  return *this;
}

NestedAttr::~NestedAttr() {
  if (ownMessage_ != nullptr) nlmsg_free(ownMessage_);
}

NestedAttr NestedAttr::build() {
  auto* msg = nlmsg_alloc();
  if (msg == nullptr) throw Error("netlink message allocation failed");
  return NestedAttr(msg);
}

std::vector<NestedAttr> readNestedList(AttrStream const& parent, nlattr const* attr) {
  std::vector<NestedAttr> list;
  auto* head = static_cast<nlattr*>(nla_data(attr));
  long const length = nla_len(attr);
  list.reserve(AttrStream(attr).size());
  forEachValid(head, length, [&](nlattr* inner) {
    list.emplace_back(AttrStream(parent.message(), static_cast<nlattr*>(nla_data(inner)),
                                 static_cast<unsigned long>(nla_len(inner))));
    return false;
  });
  return list;
}

namespace {

int payloadLength(nlattr const* attr) { return attr->nla_len - NLA_HDRLEN; }

char const* payload(nlattr const* attr) { return reinterpret_cast<char const*>(attr) + NLA_HDRLEN; }

// The payload as T; attributes are only 4-byte aligned, so it is copied.
template <class T>
T read(nlattr const* attr) {
  checkPayloadSize(attr, sizeof(T));
  T value;
  std::memcpy(&value, payload(attr), sizeof value);
  return value;
}

}  // namespace

void checkPayloadSize(nlattr const* attr, int minimum) {
  if (payloadLength(attr) < minimum) {
    throw Error(fmt::format("attribute (type {}) payload too small for data type ({} < {})",
                            nla_type(attr), nla_len(attr), minimum));
  }
}

std::uint8_t getU8(nlattr const* attr) { return read<std::uint8_t>(attr); }
std::uint16_t getU16(nlattr const* attr) { return read<std::uint16_t>(attr); }
std::uint32_t getU32(nlattr const* attr) { return read<std::uint32_t>(attr); }
std::uint64_t getU64(nlattr const* attr) { return read<std::uint64_t>(attr); }

std::string getString(nlattr const* attr) {
  checkPayloadSize(attr, 1);
  // Bounded by the payload: a string the kernel (or a peer) failed to
  // terminate is cut at the attribute's end, not read past it.
  auto const* text = payload(attr);
  return std::string(text, strnlen(text, static_cast<std::size_t>(payloadLength(attr))));
}

MacAddress getMac(nlattr const* attr) {
  checkPayloadSize(attr, 6);
  auto const* bytes = reinterpret_cast<std::uint8_t const*>(payload(attr));
  MacAddress::Bytes address;
  std::copy_n(bytes, address.size(), address.begin());
  return MacAddress(address);
}

nycpp::span<const std::byte> getBytes(nlattr const* attr) {
  return {reinterpret_cast<std::byte const*>(payload(attr)),
          static_cast<std::size_t>(payloadLength(attr))};
}

}  // namespace Ny80211
