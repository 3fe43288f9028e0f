#pragma once
// Driver parameters of Qualcomm Atheros radios and virtual APs, set and read
// by name: the two name tables and the writer of the generic attributes that
// go into the vendor data of an NL80211_CMD_VENDOR message.
//
// The caller builds the message (NL80211_ATTR_VENDOR_ID vendorId, the row's
// subcommand as NL80211_ATTR_VENDOR_SUBCMD, the radio or interface) and the
// nest of NL80211_ATTR_VENDOR_DATA; WifiParamVendorData only fills the nest.
// An unknown name or a wrong number of values is a programming error and
// ends the process (std::terminate), as a misspelt constant would.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "ny80211/AttrStream.h"
#include "ny80211/Export.h"

namespace Ny80211::QcaCmd {

// NL80211_ATTR_VENDOR_ID of the chip vendor, its OUI 00:13:74
// (QCA_NL80211_VENDOR_ID).
inline constexpr std::uint32_t vendorId = 0x001374;

// NL80211_ATTR_VENDOR_SUBCMD values: QCA_NL80211_VENDOR_SUBCMD_SET_WIFI_CONFIGURATION
// and QCA_NL80211_VENDOR_SUBCMD_GET_WIFI_CONFIGURATION.
inline constexpr std::uint32_t subCmdSetWifiConfiguration = 74;
inline constexpr std::uint32_t subCmdGetWifiConfiguration = 75;

// Attributes inside NL80211_ATTR_VENDOR_DATA,
// QCA_WLAN_VENDOR_ATTR_CONFIG_GENERIC_COMMAND ... _FLAGS.
inline constexpr int attrConfigGenericCommand = 17;
inline constexpr int attrConfigGenericValue = 18;
inline constexpr int attrConfigGenericData = 19;
inline constexpr int attrConfigGenericLength = 20;
inline constexpr int attrConfigGenericFlags = 21;

// The GENERIC_COMMAND word of every parameter request, radio or VAP, set or
// get: the driver tells the parameters apart by GENERIC_VALUE alone.
inline constexpr std::uint32_t genericParamCommand = 200;

// One parameter of a table.
struct NY80211_API VendorCmd {
  char const* name;            // matched exactly, a trailing blank included
  std::uint32_t paramId;       // the driver's number, sent as GENERIC_VALUE
  std::uint32_t vendorSubCmd;  // the subcommand the enclosing message carries
  std::uint32_t valueCount;    // integer values the parameter takes, 0 to 3
};

// A table as a whole: its first row and how many there are.
struct NY80211_API VendorCmdTable {
  VendorCmd const* rows;
  std::size_t rowCount;
};

// Tags that select a table; the lookup takes the row count from here.
struct NY80211_API RadioVendorParamTable {
  static constexpr std::size_t rowCount = 505;
};
struct NY80211_API VapVendorParamTable {
  static constexpr std::size_t rowCount = 893;
};

extern NY80211_API VendorCmdTable const g_radio_vendor_param_table;
extern NY80211_API VendorCmdTable const g_vap_vendor_param_table;

// Constructing one writes, in this order, GENERIC_COMMAND 200, GENERIC_VALUE
// (the parameter's number), and as far as values are given GENERIC_DATA (the
// value's four bytes in host order), GENERIC_LENGTH and GENERIC_FLAGS.
// Errors of the nest (message full) propagate as the stream throws them.
template <class Table>
class NY80211_API WifiParamVendorData {
 public:
  using Row = VendorCmd;

  WifiParamVendorData(NestedAttr& data, std::string_view name);
  WifiParamVendorData(NestedAttr& data, std::string_view name, unsigned int value);
  WifiParamVendorData(NestedAttr& data, std::string_view name, unsigned int value,
                      unsigned int length);
  WifiParamVendorData(NestedAttr& data, std::string_view name, unsigned int value,
                      unsigned int length, unsigned int flags);

  // The first row named exactly name; terminates when there is none or when
  // it takes another number of values than valueCount.
  static Row const* lookupVendorCmd(std::string_view name, unsigned int valueCount);

  static void writeCommandAndValue(NestedAttr& data, unsigned int paramId);
  static void writeData(NestedAttr& data, unsigned int value);
  static void writeLength(NestedAttr& data, unsigned int length);
  static void writeFlags(NestedAttr& data, unsigned int flags);
};

extern template class WifiParamVendorData<RadioVendorParamTable>;
extern template class WifiParamVendorData<VapVendorParamTable>;

}  // namespace Ny80211::QcaCmd

// The tables themselves, with C linkage for daemons that walk them.
extern "C" {
extern NY80211_API Ny80211::QcaCmd::VendorCmd const
    radio_vendor_cmds[Ny80211::QcaCmd::RadioVendorParamTable::rowCount];
extern NY80211_API Ny80211::QcaCmd::VendorCmd const
    vap_vendor_cmds[Ny80211::QcaCmd::VapVendorParamTable::rowCount];
}
