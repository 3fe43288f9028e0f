#include "ny80211/Identifiers.h"

#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <optional>
#include <string>
#include <utility>

#include <Poco/File.h>
#include <fmt/format.h>
#include <linux/nl80211.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

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

NetIfcID::NetIfcID(unsigned int index) : index_(index), defined_(true), name_(indexToName(index)) {}

// Virtual calls here reach NetIfcID's own typeString(), whatever is being built.
NetIfcID::NetIfcID(std::string const& name)
    : index_(nameToIndex(name)), defined_(true), name_(name) {}

NetIfcID::~NetIfcID() = default;

std::string_view NetIfcID::typeString() const { return "netifc"; }

namespace {

// SIOCGIFNAME on a socket the thread keeps is one system call, where
// if_indextoname opens and closes a socket for every name. Like that socket,
// it resolves in the network namespace of the thread (the one the thread had
// at its first lookup); it is closed when the thread ends.
class NameSocket {
 public:
  NameSocket() noexcept : fd_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    if (fd_ >= 0 && ::fstat(fd_, &identity_) != 0) identity_ = {};
  }
  // Only the socket it opened: a daemon that closed the descriptor may have
  // been given the same number for a file of its own since.
  ~NameSocket() {
    struct stat now {};
    if (fd_ >= 0 && ::fstat(fd_, &now) == 0 && now.st_dev == identity_.st_dev &&
        now.st_ino == identity_.st_ino) {
      ::close(fd_);
    }
  }
  NameSocket(NameSocket const&) = delete;
  NameSocket& operator=(NameSocket const&) = delete;

  // The name, or empty when the kernel has no interface of that index; null
  // when the socket could not answer at all.
  std::optional<std::string> lookUp(unsigned int index) const {
    if (fd_ < 0) return std::nullopt;
    ifreq request{};
    request.ifr_ifindex = static_cast<int>(index);
    if (::ioctl(fd_, SIOCGIFNAME, &request) == 0) {
      return std::string(request.ifr_name, ::strnlen(request.ifr_name, IF_NAMESIZE));
    }
    if (errno == ENODEV) return std::string();
    return std::nullopt;
  }

 private:
  int fd_;
  struct stat identity_ {};
};

}  // namespace

std::string NetIfcID::indexToName(unsigned int index) {
  thread_local NameSocket const socket;
  auto name = socket.lookUp(index);
  if (!name) {
    // The socket is gone (a daemon may close every descriptor it did not
    // open itself): the lookup that needs none of its own.
    char buffer[IF_NAMESIZE] = {};
    name = if_indextoname(index, buffer) != nullptr ? buffer : "";
  }
  if (name->empty()) return fmt::format("<ifindex {}>", index);
  return std::move(*name);
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
