#pragma once
// Identifiers of the objects nl80211 commands address: a wireless PHY
// (WiPhyID), a wireless device without network interface (WDevID), a network
// interface (NetIfcID) and a virtual access point's interface (VapID).
//
// Each may be undefined (made without a value); writing an undefined one into
// a command throws rather than letting the kernel pick a default target.
// Names are resolved when an identifier is made from one, so that an unknown
// name fails where it is given, not at the first command.
//
// fmt format specs, one letter: i (index), n (name), p (printed form, the
// default), t (type); WDevID has no n.

#include <string>
#include <string_view>

#include <fmt/format.h>

#include "ny80211/Export.h"

namespace Ny80211 {

class AttrStream;

class NY80211_API WiPhyID {
 public:
  // Undefined, named "<undefined>".
  WiPhyID() = default;
  // Named "<?>": the PHY's name is not looked up.
  explicit WiPhyID(unsigned int index);
  // Resolves the name through sysfs; throws Error for an unknown PHY.
  explicit WiPhyID(std::string const& name);

  // "<?>" whatever the index.
  static std::string indexToName(unsigned int index);
  // The index in /sys/class/ieee80211/<name>/index. Throws Error "wiphy lookup
  // failed for name '{}'" or "error reading phy index from {}".
  static unsigned int nameToIndex(std::string const& name);

  unsigned int index() const noexcept { return index_; }
  bool isDefined() const noexcept { return defined_; }
  std::string const& name() const noexcept { return name_; }

  // NL80211_ATTR_WIPHY (u32); Error "wiphy ID undefined" when undefined.
  void writeTo(AttrStream& attrs) const;

 private:
  unsigned int index_ = 0;
  bool defined_ = false;
  std::string name_ = "<undefined>";
};

class NY80211_API WDevID {
 public:
  WDevID() = default;
  explicit WDevID(unsigned long id) : id_(id), defined_(true) {}

  unsigned long id() const noexcept { return id_; }
  bool isDefined() const noexcept { return defined_; }

  // NL80211_ATTR_WDEV (u64); Error "wdev ID undefined" when undefined.
  void writeTo(AttrStream& attrs) const;

 private:
  unsigned long id_ = 0;
  bool defined_ = false;
};

class NY80211_API NetIfcID {
 public:
  // Undefined, named "<undefined>".
  NetIfcID() = default;
  // Named after the interface, or "<ifindex N>" when there is none.
  explicit NetIfcID(unsigned int index);
  // Resolves the name; throws Error for an unknown interface.
  explicit NetIfcID(std::string const& name);
  NetIfcID(NetIfcID const&) = default;
  NetIfcID& operator=(NetIfcID const&) = default;
  NetIfcID(NetIfcID&&) = default;
  NetIfcID& operator=(NetIfcID&&) = default;
  virtual ~NetIfcID();

  // What the printed form and lookup failures call the interface.
  virtual std::string_view typeString() const;

  // The kernel's name now, in the calling thread's network namespace, or
  // "<ifindex N>". Each thread that looks up names keeps one datagram socket
  // (close-on-exec) for them, opened at its first lookup and closed when it
  // ends; the namespace is the one the thread had then.
  static std::string indexToName(unsigned int index);
  // Throws Error "{} lookup failed for name '{}' ({})" with typeString(), the
  // name and errno.
  unsigned int nameToIndex(std::string const& name) const;

  unsigned int index() const noexcept { return index_; }
  bool isDefined() const noexcept { return defined_; }
  std::string const& name() const noexcept { return name_; }

  // The text for one format letter; "<undefined>" for any letter when
  // undefined, fmt::format_error "invalid format" for an unknown letter when
  // defined.
  std::string format(char spec) const;

  // NL80211_ATTR_IFINDEX (u32); Error "ifc ID undefined" when undefined.
  void writeTo(AttrStream& attrs) const;

 private:
  unsigned int index_ = 0;
  bool defined_ = false;
  std::string name_ = "<undefined>";
};

class NY80211_API VapID : public NetIfcID {
 public:
  // A name lookup in these reports a failure as "netifc": the lookup runs
  // before the VapID exists.
  using NetIfcID::NetIfcID;
  VapID() = default;
  explicit VapID(NetIfcID const& ifc) : NetIfcID(ifc) {}
  VapID(VapID const&) = default;
  VapID& operator=(VapID const&) = default;
  VapID(VapID&&) = default;
  VapID& operator=(VapID&&) = default;
  ~VapID() override;

  std::string_view typeString() const override;
};

namespace detail {

// The parse step shared by the identifier formatters: an empty spec or one of
// the accepted letters, nothing more.
template <char... Accepted>
struct IdSpecParser {
  char spec = 'p';

  constexpr auto parse(fmt::format_parse_context& ctx) {
    auto it = ctx.begin();
    auto const end = ctx.end();
    if (it != end && *it != '}') {
      spec = *it++;
      if (((spec != Accepted) && ...)) throw fmt::format_error("invalid format");
    }
    if (it != end && *it != '}') throw fmt::format_error("invalid format");
    return it;
  }
};

}  // namespace detail
}  // namespace Ny80211

template <>
struct fmt::formatter<Ny80211::WiPhyID> : Ny80211::detail::IdSpecParser<'i', 'n', 'p', 't'> {
  template <class Context>
  auto format(Ny80211::WiPhyID const& phy, Context& ctx) const {
    switch (spec) {
      case 'i':
        if (!phy.isDefined()) return fmt::format_to(ctx.out(), "<undefined>");
        return fmt::format_to(ctx.out(), "{}", phy.index());
      case 'n':
        return fmt::format_to(ctx.out(), "{}", phy.name());
      case 't':
        return fmt::format_to(ctx.out(), "wiphy");
      default:
        if (!phy.isDefined())
          return fmt::format_to(ctx.out(), "wiphy {} (ID <undefined>)", phy.name());
        return fmt::format_to(ctx.out(), "wiphy {} (ID {})", phy.name(), phy.index());
    }
  }
};

template <>
struct fmt::formatter<Ny80211::WDevID> : Ny80211::detail::IdSpecParser<'i', 'p', 't'> {
  template <class Context>
  auto format(Ny80211::WDevID const& wdev, Context& ctx) const {
    switch (spec) {
      case 'i':
        if (!wdev.isDefined()) return fmt::format_to(ctx.out(), "<undefined>");
        return fmt::format_to(ctx.out(), "{}", wdev.id());
      case 't':
        return fmt::format_to(ctx.out(), "wdev");
      default:
        if (!wdev.isDefined()) return fmt::format_to(ctx.out(), "wdev <undefined>");
        return fmt::format_to(ctx.out(), "wdev {}", wdev.id());
    }
  }
};

template <>
struct fmt::formatter<Ny80211::NetIfcID> : Ny80211::detail::IdSpecParser<'i', 'n', 'p', 't'> {
  // Takes VapID and any other derived identifier too.
  template <class Context>
  auto format(Ny80211::NetIfcID const& ifc, Context& ctx) const {
    return fmt::format_to(ctx.out(), "{}", ifc.format(spec));
  }
};

template <>
struct fmt::formatter<Ny80211::VapID> : fmt::formatter<Ny80211::NetIfcID> {};
