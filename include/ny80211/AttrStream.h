#pragma once
// AttrStream: a view over a run of netlink attributes, read by type (the
// first occurrence wins) and written through libnl.
// NestedAttr: a stream that may own a message of its own, the unit in which
// nested attributes are read and built.

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "ny80211/Export.h"
#include "nycpp/span.h"
#include "quenta_share/MacAddress.h"

struct nl_msg;
struct nlattr;

namespace Ny80211 {

class NestedAttr;
enum class AttrScope : int;

class NY80211_API AttrStream {
 public:
  AttrStream();
  // A stream over the attributes of a generic netlink message (family header
  // of 4 bytes), or over one entry of a nested list with its parent's message.
  AttrStream(nl_msg* msg, nlattr* head, unsigned long length);
  // A stream over the payload of one attribute.
  explicit AttrStream(nlattr const* attr);
  AttrStream(AttrStream const&);
  AttrStream& operator=(AttrStream const&);
  AttrStream(AttrStream&&) noexcept;
  AttrStream& operator=(AttrStream&&) noexcept;
  virtual ~AttrStream();

  void setTo(nl_msg* msg, nlattr* head, unsigned long length, unsigned long headerLength);

  bool has(int type) const noexcept { return tryFind(type) != nullptr; }
  // Throws AttrNotFound "attribute not found (type {})".
  nlattr* find(int type) const;
  // The first attribute of the type, or null: the way to test an optional one.
  nlattr* tryFind(int type) const noexcept;
  // Every attribute in message order, duplicates included.
  void forEachAttr(std::function<void(nlattr const*)> const& f) const;
  void forEachAttr(std::function<void(nlattr*)> const& f);

  // Every attribute as text (AttrFmt), then the payload and stream sizes.
  // Never throws.
  void printToStream(std::ostream& os, AttrScope scope) const;

  // The one writing primitive: runs the writer on the message, then indexes
  // the attribute it wrote. Throws Error "attribute already exists",
  // "failed to add attribute" or "added attribute not found".
  void append(int type, std::function<int(nl_msg*)> writer);
  template <class T>
  void addInternal(int type, T const& value);

  // Typed writes by attribute type.
  void addU8(int type, std::uint8_t value) { addInternal<unsigned char>(type, value); }
  void addU16(int type, std::uint16_t value) { addInternal<unsigned short>(type, value); }
  void addU32(int type, std::uint32_t value) { addInternal<unsigned int>(type, value); }
  void addU64(int type, std::uint64_t value) { addInternal<unsigned long>(type, value); }
  void addFlag(int type, bool value) { addInternal<bool>(type, value); }
  void addString(int type, std::string const& value) { addInternal<std::string>(type, value); }
  void addMac(int type, MacAddress const& value) { addInternal<MacAddress>(type, value); }
  void addBytes(int type, nycpp::span<const std::byte> value) {
    addInternal<nycpp::span<const std::byte>>(type, value);
  }
  // A nest of u32 attributes typed 0, 1, 2, ... by position.
  void addU32List(int type, std::vector<unsigned int> const& values) {
    addInternal<std::vector<unsigned int>>(type, values);
  }
  void addNested(int type, NestedAttr const& nested);

  // Typed reads by attribute type: AttrNotFound when absent, Error when the
  // payload is shorter than the type.
  std::uint8_t getU8(int type) const;
  std::uint16_t getU16(int type) const;
  std::uint32_t getU32(int type) const;
  std::uint64_t getU64(int type) const;
  std::string getString(int type) const;
  MacAddress getMac(int type) const;
  nycpp::span<const std::byte> getBytes(int type) const;
  std::vector<NestedAttr> getNestedList(int type) const;

  // Optional reads: empty when absent, Error when present but short.
  std::optional<std::uint8_t> tryGetU8(int type) const;
  std::optional<std::uint32_t> tryGetU32(int type) const;
  std::optional<std::uint64_t> tryGetU64(int type) const;

  // How many attributes the stream holds, duplicates included.
  std::size_t size() const noexcept { return size_; }
  nl_msg* message() const noexcept { return message_; }
  nlattr* head() const noexcept { return head_; }
  long length() const noexcept { return length_; }

 private:
  nl_msg* message_ = nullptr;
  nlattr* head_ = nullptr;
  long length_ = 0;
  unsigned long headerLength_ = 0;
  std::size_t size_ = 0;
  // Streams stay flat and allocation-free to make and to copy. The first
  // attribute of each type below 64 is kept by its offset from the head, in
  // 4-byte units plus one (0: none); which of the types from 64 to 511 occur
  // is kept as bits, so an absent one is answered without a walk. Any other
  // is found by a walk from the head that stops at the first of its type, as
  // is a type below 64 when the stream runs past 256 KiB (far_).
  static constexpr int directTypes = 64;
  static constexpr int seenTypes = 512;
  void note(int type, nlattr const* attr) noexcept;
  std::array<std::uint16_t, directTypes> first_{};
  std::array<std::uint64_t, seenTypes / 64> seen_{};
  bool far_ = false;
};

extern template NY80211_API void AttrStream::addInternal<unsigned char>(int, unsigned char const&);
extern template NY80211_API void AttrStream::addInternal<unsigned short>(int,
                                                                         unsigned short const&);
extern template NY80211_API void AttrStream::addInternal<unsigned int>(int, unsigned int const&);
extern template NY80211_API void AttrStream::addInternal<unsigned long>(int, unsigned long const&);
extern template NY80211_API void AttrStream::addInternal<bool>(int, bool const&);
extern template NY80211_API void AttrStream::addInternal<std::string>(int, std::string const&);
extern template NY80211_API void AttrStream::addInternal<std::array<std::byte, 6>>(
    int, std::array<std::byte, 6> const&);
extern template NY80211_API void AttrStream::addInternal<MacAddress>(int, MacAddress const&);
extern template NY80211_API void AttrStream::addInternal<nycpp::span<const std::byte>>(
    int, nycpp::span<const std::byte> const&);
extern template NY80211_API void AttrStream::addInternal<std::vector<unsigned int>>(
    int, std::vector<unsigned int> const&);
extern template NY80211_API void AttrStream::addInternal<NestedAttr>(int, NestedAttr const&);

class NY80211_API NestedAttr : public AttrStream {
 public:
  // Empty, owning nothing.
  NestedAttr() = default;
  // A view, owning nothing (an entry of a nested list).
  explicit NestedAttr(AttrStream const& view) : AttrStream(view) {}
  // Takes over msg (may be null) and covers its whole body as attributes.
  explicit NestedAttr(nl_msg* ownMessage);
  NestedAttr(NestedAttr&& other) noexcept;
  NestedAttr& operator=(NestedAttr&& other) noexcept;
  NestedAttr(NestedAttr const&) = delete;
  NestedAttr& operator=(NestedAttr const&) = delete;
  ~NestedAttr() override;

  // An empty nest to build, with a message of its own; written into its
  // parent with addNested.
  static NestedAttr build();

  nl_msg* ownMessage() const noexcept { return ownMessage_; }

 private:
  nl_msg* ownMessage_ = nullptr;
};

// One NestedAttr per attribute inside attr's payload, in order, each a view
// with the parent's message.
NY80211_API std::vector<NestedAttr> readNestedList(AttrStream const& parent, nlattr const* attr);

// Throws Error "attribute (type {}) payload too small for data type ({} < {})".
NY80211_API void checkPayloadSize(nlattr const* attr, int minimum);

// Size-guarded reads of one attribute.
NY80211_API std::uint8_t getU8(nlattr const* attr);
NY80211_API std::uint16_t getU16(nlattr const* attr);
NY80211_API std::uint32_t getU32(nlattr const* attr);
NY80211_API std::uint64_t getU64(nlattr const* attr);
NY80211_API std::string getString(nlattr const* attr);
NY80211_API MacAddress getMac(nlattr const* attr);
NY80211_API nycpp::span<const std::byte> getBytes(nlattr const* attr);

}  // namespace Ny80211
