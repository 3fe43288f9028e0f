#pragma once
// AttrFmt: renders nl80211 attributes as indented text for traces and
// debugging, one line per attribute with its payload size, its name and its
// decoded value, descending into the nested attributes whose layout is known.
// Text output only: bad data prints placeholders, it never throws.

#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ny80211/AttrStream.h"
#include "ny80211/Export.h"

struct nlattr;

namespace Ny80211 {

// The attribute sets the formatter knows.
enum class AttrScope : int {
  Nl80211 = 0,         // enum nl80211_attrs, the top level of nl80211 messages
  Bss = 18,            // enum nl80211_bss, nested in NL80211_ATTR_BSS
  QcaWifiConfig = 82,  // enum qca_wlan_vendor_attr_config, the QCA set/get configuration data
};

class AttrFmt;

// One row of an attribute table.
struct attr_fmt_info {
  int type;
  std::string_view name;
  // Writes the decoded value; null when the attribute has no decoder.
  void (AttrFmt::*formatter)(const nlattr*);
};

class NY80211_API AttrFmt {
 public:
  // A value a decoder remembers for the attributes that follow it.
  struct Remembered {
    std::uint32_t value = 0;
    bool seen = false;
  };

  AttrFmt();

  // The table of a scope; null for a value that names none.
  static const std::vector<attr_fmt_info>* GetTable(AttrScope scope);
  // The first row of the type; null when there is none or no table.
  static const attr_fmt_info* GetFmtInfo(int type, const std::vector<attr_fmt_info>* table);

  // One line head and value, without the line end.
  void FormatAttr(const nlattr* attr, const std::vector<attr_fmt_info>* table);
  // Every attribute of the stream, each line ended.
  void FormatAttrStream(const AttrStream& stream, const std::vector<attr_fmt_info>* table);

  // One attribute, its line ended.
  static std::string Format(const std::pair<AttrScope, const nlattr*>& attr);
  // Every attribute of a stream.
  static std::string Format(const std::pair<AttrScope, const AttrStream&>& stream);

  // Value decoders: a payload of the wrong size prints "<invalid>".
  void Bool(const nlattr* attr);
  void UInt8(const nlattr* attr);
  void UInt16(const nlattr* attr);
  void UInt32(const nlattr* attr);
  void UInt64(const nlattr* attr);
  void Int32(const nlattr* attr);
  void UInt32WithDisable(const nlattr* attr);
  void UInt32Hex(const nlattr* attr);
  void UInt64Hex(const nlattr* attr);
  void UInt16Bin(const nlattr* attr);
  void String(const nlattr* attr);
  void EscapedString(const nlattr* attr);
  void BytesHex(const nlattr* attr);
  void MacAddr(const nlattr* attr);
  void Bss(const nlattr* attr);
  void QcaVendorSubCmd(const nlattr* attr);
  void QcaVendorData(const nlattr* attr);
  void QcaGenericCommand(const nlattr* attr);
  void QcaGenericData(const nlattr* attr);

  // "<>" for an empty payload, "<...>" otherwise.
  std::string UnknownAttrContent(const nlattr* attr);

  // The formatter's state is open so that a caller running a decoder or
  // FormatAttr by itself can read the text it wrote.
  std::stringstream out;
  std::uint32_t indent = 0;
  // The vendor data of an nl80211 message is read by the subcommand that
  // precedes it, so one formatter per message carries both along.
  Remembered vendorSubCmd;
  Remembered genericCommand;

 private:
  void formatNested(const nlattr* attr, const std::vector<attr_fmt_info>* table);
};

}  // namespace Ny80211
