#include "ny80211/VendorCmd.h"

#include <cstddef>
#include <exception>
#include <iterator>

#include "nycpp/span.h"

namespace Ny80211::QcaCmd {

VendorCmdTable const g_radio_vendor_param_table{radio_vendor_cmds, std::size(radio_vendor_cmds)};
VendorCmdTable const g_vap_vendor_param_table{vap_vendor_cmds, std::size(vap_vendor_cmds)};

namespace {

VendorCmd const* rowsOf(RadioVendorParamTable) { return radio_vendor_cmds; }
VendorCmd const* rowsOf(VapVendorParamTable) { return vap_vendor_cmds; }

}  // namespace

template <class Table>
VendorCmd const* WifiParamVendorData<Table>::lookupVendorCmd(std::string_view name,
                                                             unsigned int valueCount) {
  VendorCmd const* const rows = rowsOf(Table{});
  for (std::size_t i = 0; i < Table::rowCount; ++i) {
    // string_view equality compares the lengths first, so a name never
    // matches a longer one that starts with it ("dl_vap", "dl_vapon").
    if (std::string_view(rows[i].name) != name) continue;
    if (rows[i].valueCount != valueCount) std::terminate();
    return &rows[i];
  }
  std::terminate();
}

template <class Table>
void WifiParamVendorData<Table>::writeCommandAndValue(NestedAttr& data, unsigned int paramId) {
  data.addU32(attrConfigGenericCommand, genericParamCommand);
  data.addU32(attrConfigGenericValue, paramId);
}

template <class Table>
void WifiParamVendorData<Table>::writeData(NestedAttr& data, unsigned int value) {
  // Binary, not u32: the driver copies the bytes as they come.
  data.addBytes(
      attrConfigGenericData,
      nycpp::span<const std::byte>(reinterpret_cast<std::byte const*>(&value), sizeof value));
}

template <class Table>
void WifiParamVendorData<Table>::writeLength(NestedAttr& data, unsigned int length) {
  data.addU32(attrConfigGenericLength, length);
}

template <class Table>
void WifiParamVendorData<Table>::writeFlags(NestedAttr& data, unsigned int flags) {
  data.addU32(attrConfigGenericFlags, flags);
}

template <class Table>
WifiParamVendorData<Table>::WifiParamVendorData(NestedAttr& data, std::string_view name) {
  writeCommandAndValue(data, lookupVendorCmd(name, 0)->paramId);
}

template <class Table>
WifiParamVendorData<Table>::WifiParamVendorData(NestedAttr& data, std::string_view name,
                                                unsigned int value) {
  writeCommandAndValue(data, lookupVendorCmd(name, 1)->paramId);
  writeData(data, value);
}

template <class Table>
WifiParamVendorData<Table>::WifiParamVendorData(NestedAttr& data, std::string_view name,
                                                unsigned int value, unsigned int length) {
  writeCommandAndValue(data, lookupVendorCmd(name, 2)->paramId);
  writeData(data, value);
  writeLength(data, length);
}

template <class Table>
WifiParamVendorData<Table>::WifiParamVendorData(NestedAttr& data, std::string_view name,
                                                unsigned int value, unsigned int length,
                                                unsigned int flags) {
  writeCommandAndValue(data, lookupVendorCmd(name, 3)->paramId);
  writeData(data, value);
  writeLength(data, length);
  writeFlags(data, flags);
}

template class WifiParamVendorData<RadioVendorParamTable>;
template class WifiParamVendorData<VapVendorParamTable>;

}  // namespace Ny80211::QcaCmd
