#include "ny80211/AttrFmt.h"

#include <cstdint>
#include <cstring>
#include <exception>
#include <iterator>
#include <ostream>

#include <fmt/format.h>
#include <netlink/attr.h>

#include "nycpp/span.h"
#include "quenta_share/MacAddress.h"

namespace Ny80211 {

namespace {

constexpr char const* invalid = "<invalid>";

// Decoders compare against the exact size before they read, so a short
// payload is never read past its end.
bool hasSize(const nlattr* attr, int size) { return nla_len(attr) == size; }

}  // namespace

AttrFmt::AttrFmt() = default;

const attr_fmt_info* AttrFmt::GetFmtInfo(int type, const std::vector<attr_fmt_info>* table) {
  if (table == nullptr) return nullptr;
  for (auto const& row : *table) {
    if (row.type == type) return &row;
  }
  return nullptr;
}

void AttrFmt::FormatAttr(const nlattr* attr, const std::vector<attr_fmt_info>* table) {
  auto const type = nla_type(attr);
  auto const* info = GetFmtInfo(type, table);
  // Width 1 at the top level keeps one blank between the size and the name.
  auto const width = indent == 0 ? 1u : indent * 4;
  auto const head = [&](std::string_view name) {
    out << fmt::format("\t\t[{:>5} byte]{:{}}{:<40} : ", nla_len(attr), "", width, name);
  };
  if (info == nullptr) {
    head(fmt::format("<attr type {}>", type));
    out << UnknownAttrContent(attr);
    return;
  }
  head(info->name);
  if (info->formatter != nullptr) {
    (this->*info->formatter)(attr);
  } else {
    out << UnknownAttrContent(attr);
  }
}

void AttrFmt::FormatAttrStream(const AttrStream& stream, const std::vector<attr_fmt_info>* table) {
  stream.forEachAttr([&](nlattr const* attr) {
    FormatAttr(attr, table);
    out << "\n";
  });
}

std::string AttrFmt::Format(const std::pair<AttrScope, const nlattr*>& attr) {
  AttrFmt fmt;
  fmt.FormatAttr(attr.second, GetTable(attr.first));
  fmt.out << "\n";
  return fmt.out.str();
}

std::string AttrFmt::Format(const std::pair<AttrScope, const AttrStream&>& stream) {
  AttrFmt fmt;
  fmt.FormatAttrStream(stream.second, GetTable(stream.first));
  return fmt.out.str();
}

void AttrFmt::Bool(const nlattr* attr) {
  // A flag: its presence is the value.
  out << (hasSize(attr, 0) ? "yes" : invalid);
}

void AttrFmt::UInt8(const nlattr* attr) {
  if (!hasSize(attr, 1)) {
    out << invalid;
    return;
  }
  out << fmt::format("{}", nla_get_u8(attr));
}

void AttrFmt::UInt16(const nlattr* attr) {
  if (!hasSize(attr, 2)) {
    out << invalid;
    return;
  }
  out << fmt::format("{}", nla_get_u16(attr));
}

void AttrFmt::UInt32(const nlattr* attr) {
  if (!hasSize(attr, 4)) {
    out << invalid;
    return;
  }
  out << fmt::format("{}", nla_get_u32(attr));
}

void AttrFmt::UInt64(const nlattr* attr) {
  if (!hasSize(attr, 8)) {
    out << invalid;
    return;
  }
  out << fmt::format("{}", nla_get_u64(attr));
}

void AttrFmt::Int32(const nlattr* attr) {
  if (!hasSize(attr, 4)) {
    out << invalid;
    return;
  }
  out << static_cast<std::int32_t>(nla_get_u32(attr));
}

void AttrFmt::UInt32WithDisable(const nlattr* attr) {
  if (!hasSize(attr, 4)) {
    out << invalid;
    return;
  }
  // nl80211 sends all ones for a threshold that is switched off.
  auto const value = nla_get_u32(attr);
  out << (value == 0xffffffffu ? std::string("disabled") : fmt::format("{}", value));
}

void AttrFmt::UInt32Hex(const nlattr* attr) {
  if (!hasSize(attr, 4)) {
    out << invalid;
    return;
  }
  out << fmt::format("{:#x}", nla_get_u32(attr));
}

void AttrFmt::UInt64Hex(const nlattr* attr) {
  if (!hasSize(attr, 8)) {
    out << invalid;
    return;
  }
  out << fmt::format("{:#x}", nla_get_u64(attr));
}

void AttrFmt::UInt16Bin(const nlattr* attr) {
  if (!hasSize(attr, 2)) {
    out << invalid;
    return;
  }
  out << fmt::format("{:#b}", nla_get_u16(attr));
}

void AttrFmt::String(const nlattr* attr) {
  if (nla_len(attr) < 1) {
    out << invalid;
    return;
  }
  // Cut at the first NUL, or at the payload's end when a sender left the
  // string unterminated.
  auto const* text = static_cast<char const*>(nla_data(attr));
  out << std::string_view(text, strnlen(text, static_cast<std::size_t>(nla_len(attr))));
}

void AttrFmt::EscapedString(const nlattr* attr) {
  if (nla_len(attr) < 1) {
    out << invalid;
    return;
  }
  // An SSID may hold any byte, NUL included: all of the payload, escaped.
  nycpp::span<const char> const chars(static_cast<char const*>(nla_data(attr)),
                                      static_cast<std::size_t>(nla_len(attr)));
  out << fmt::format("{}", chars);
}

void AttrFmt::BytesHex(const nlattr* attr) {
  auto const* bytes = static_cast<std::uint8_t const*>(nla_data(attr));
  // Only the top-level attribute a caller hands in can claim less than a header.
  auto const size = nla_len(attr) > 0 ? static_cast<std::size_t>(nla_len(attr)) : 0;
  // Byte by byte rather than fmt::join: fmt/ranges.h, which has join in
  // fmt 11, would make the character spans of EscapedString ambiguous.
  fmt::memory_buffer hex;
  for (std::size_t i = 0; i < size; ++i)
    fmt::format_to(std::back_inserter(hex), "{:02x}", bytes[i]);
  out << "[hex " << fmt::to_string(hex) << "]";
}

void AttrFmt::MacAddr(const nlattr* attr) {
  if (!hasSize(attr, static_cast<int>(MacAddress::size()))) {
    out << invalid;
    return;
  }
  nycpp::span<const std::uint8_t> const bytes(static_cast<std::uint8_t const*>(nla_data(attr)),
                                              MacAddress::size());
  out << MacAddress(bytes).ToString();
}

void AttrFmt::Bss(const nlattr* attr) { formatNested(attr, GetTable(AttrScope::Bss)); }

void AttrFmt::QcaVendorData(const nlattr* attr) {
  if (!vendorSubCmd.seen) {
    out << UnknownAttrContent(attr) << "(missing subcmd)";
    return;
  }
  switch (vendorSubCmd.value) {
    case 74:  // QCA_NL80211_VENDOR_SUBCMD_SET_WIFI_CONFIGURATION
    case 75:  // QCA_NL80211_VENDOR_SUBCMD_GET_WIFI_CONFIGURATION
      formatNested(attr, GetTable(AttrScope::QcaWifiConfig));
      break;
    case 196:  // QCA_NL80211_VENDOR_SUBCMD_MBSSID_TX_VDEV_STATUS
      BytesHex(attr);
      break;
    default:
      out << UnknownAttrContent(attr) << "(unmapped subcmd)";
      break;
  }
}

void AttrFmt::QcaGenericData(const nlattr* attr) {
  // No generic command has a known layout, so its data stays opaque.
  out << UnknownAttrContent(attr);
}

std::string AttrFmt::UnknownAttrContent(const nlattr* attr) {
  return nla_len(attr) < 1 ? "<>" : "<...>";
}

void AttrFmt::formatNested(const nlattr* attr, const std::vector<attr_fmt_info>* table) {
  struct Deeper {
    std::uint32_t& indent;
    explicit Deeper(std::uint32_t& level) : indent(level) { ++indent; }
    ~Deeper() { --indent; }
    Deeper(Deeper const&) = delete;
    Deeper& operator=(Deeper const&) = delete;
  } const deeper(indent);
  out << "nested =>\n";
  // The stream walks only whole attributes inside the payload, so a
  // malformed nest ends the walk instead of reading past it.
  FormatAttrStream(AttrStream(attr), table);
}

void AttrStream::printToStream(std::ostream& os, AttrScope scope) const {
  try {
    os << "\tAttributes:\n";
    os << AttrFmt::Format({scope, *this});
    long payload = 0;
    forEachAttr([&](nlattr const* attr) { payload += nla_len(attr); });
    os << fmt::format("\tattrs\t[{:>5} byte]\n\tstream\t[{:>5} byte]\n", payload, length());
  } catch (...) {
    // Bad data prints placeholders, so only a fault (memory, a failing
    // stream) gets here; callers print from paths that cannot take an
    // exception, so stop where it happened.
    std::terminate();
  }
}

}  // namespace Ny80211
