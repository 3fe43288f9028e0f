#include "ny80211/Identifiers.h"

#include <cerrno>
#include <charconv>
#include <fstream>

#include <fmt/format.h>
#include <linux/nl80211.h>
#include <net/if.h>
#include <Poco/File.h>

#include "ny80211/AttrStream.h"
#include "ny80211/Error.h"

namespace Ny80211 {

WiPhyID::WiPhyID(unsigned int index) : index_(index), defined_(true), name_(indexToName(index)) {}

WiPhyID::WiPhyID(std::string const& name)
    : index_(nameToIndex(name)), defined_(true), name_(name) {}

// Commands address a PHY by index, and its name can change under us (iw phy
// set name), so a looked-up name would only mislead.
std::string WiPhyID::indexToName(unsigned int) { return "<?>"; }

unsigned int WiPhyID::nameToIndex(std::string const& name) {
  auto const path = fmt::format("/sys/class/ieee80211/{}/index", name);
  if (!Poco::File(path).exists()) {
    throw Error(fmt::format("wiphy lookup failed for name '{}'", name));
  }
  std::ifstream in(path);
  if (!in.is_open() || !in.good()) {
    throw Error(fmt::format("error reading phy index from {}", path));
  }
  // The whole token must be a decimal number: ">>" into an unsigned would
  // take "-1" as 4294967295.
  std::string text;
  in >> text;
  unsigned int index = 0;
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), index);
  if (text.empty() || error != std::errc() || end != text.data() + text.size()) {
    throw Error(fmt::format("error reading phy index from {}", path));
  }
  return index;
}

void WiPhyID::writeTo(AttrStream& attrs) const {
  if (!defined_) throw Error("wiphy ID undefined");
  attrs.addU32(NL80211_ATTR_WIPHY, index_);
}

void WDevID::writeTo(AttrStream& attrs) const {
  if (!defined_) throw Error("wdev ID undefined");
  attrs.addU64(NL80211_ATTR_WDEV, id_);
}

NetIfcID::NetIfcID(unsigned int index)
    : index_(index), defined_(true), name_(indexToName(index)) {}

// Virtual calls here reach NetIfcID's own typeString(), whatever is being built.
NetIfcID::NetIfcID(std::string const& name)
    : index_(nameToIndex(name)), defined_(true), name_(name) {}

NetIfcID::~NetIfcID() = default;

std::string_view NetIfcID::typeString() const { return "netifc"; }

std::string NetIfcID::indexToName(unsigned int index) {
  char name[IF_NAMESIZE] = {};
  if (if_indextoname(index, name) == nullptr) return fmt::format("<ifindex {}>", index);
  return name;
}

unsigned int NetIfcID::nameToIndex(std::string const& name) const {
  auto const index = if_nametoindex(name.c_str());
  auto const error = errno;
  if (index == 0) {
    throw Error(fmt::format("{} lookup failed for name '{}' ({})", typeString(), name, error));
  }
  return index;
}

std::string NetIfcID::format(char spec) const {
  if (!defined_) return "<undefined>";
  switch (spec) {
    case 'i':
      return fmt::format("{}", index_);
    case 'n':
      return name_;
    case 'p':
      return fmt::format("{} {}", typeString(), name_);
    case 't':
      return std::string(typeString());
    default:
      throw fmt::format_error("invalid format");
  }
}

void NetIfcID::writeTo(AttrStream& attrs) const {
  if (!defined_) throw Error("ifc ID undefined");
  attrs.addU32(NL80211_ATTR_IFINDEX, index_);
}

VapID::~VapID() = default;

std::string_view VapID::typeString() const { return "VAP"; }

}  // namespace Ny80211
