#pragma once
// Events from nl80211 multicast messages: immutable notifications that the
// event socket publishes on the daemon's event bus, each with a one-line
// text. Each constructor reads its message and throws Error (AttrNotFound
// for a missing attribute) when the message is not what the class expects.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <Poco/Notification.h>
#include <linux/nl80211.h>

#include "ny80211/Channel.h"
#include "ny80211/Export.h"
#include "ny80211/Identifiers.h"
#include "ny80211/InterfaceInfo.h"
#include "ny80211/WiPhyInfo.h"
#include "quenta_common/MHz.h"

namespace Ny80211 {

class GenlMessage;

namespace Event {

class NY80211_API Nl80211Event : public Poco::Notification {
 public:
  ~Nl80211Event() override;
  // Shared through Poco::AutoPtr and never changed: events are not copied.
  Nl80211Event(Nl80211Event const&) = delete;
  Nl80211Event& operator=(Nl80211Event const&) = delete;
  virtual std::string toString() const = 0;

 protected:
  // Error "unexpected nl80211 event ID {}" when the message's command is not
  // the expected one.
  Nl80211Event(GenlMessage const& message, std::uint8_t expectedCommand);
};

// NL80211_CMD_NEW_WIPHY
class NY80211_API WiPhyCreated final : public Nl80211Event {
 public:
  explicit WiPhyCreated(GenlMessage const& message);
  ~WiPhyCreated() override;
  WiPhyCreated(WiPhyCreated const&) = delete;
  WiPhyCreated& operator=(WiPhyCreated const&) = delete;
  WiPhyInfo const& info() const noexcept { return info_; }
  std::string toString() const override;

 private:
  WiPhyInfo info_;
};

// NL80211_CMD_NEW_INTERFACE
class NY80211_API IfcCreated final : public Nl80211Event {
 public:
  explicit IfcCreated(GenlMessage const& message);
  ~IfcCreated() override;
  IfcCreated(IfcCreated const&) = delete;
  IfcCreated& operator=(IfcCreated const&) = delete;
  InterfaceInfo const& info() const noexcept { return info_; }
  bool fourAddr() const noexcept { return fourAddr_; }
  std::string toString() const override;

 private:
  InterfaceInfo info_;
  bool fourAddr_ = false;
};

// NL80211_CMD_DEL_INTERFACE
class NY80211_API IfcDeleted final : public Nl80211Event {
 public:
  explicit IfcDeleted(GenlMessage const& message);
  ~IfcDeleted() override;
  IfcDeleted(IfcDeleted const&) = delete;
  IfcDeleted& operator=(IfcDeleted const&) = delete;
  InterfaceInfo const& info() const noexcept { return info_; }
  std::string toString() const override;

 private:
  InterfaceInfo info_;
};

// NL80211_CMD_STOP_AP
class NY80211_API ApStopped final : public Nl80211Event {
 public:
  explicit ApStopped(GenlMessage const& message);
  ~ApStopped() override;
  ApStopped(ApStopped const&) = delete;
  ApStopped& operator=(ApStopped const&) = delete;
  WiPhyID const& phy() const noexcept { return phy_; }
  NetIfcID const& ifc() const noexcept { return ifc_; }
  WDevID const& wdev() const noexcept { return wdev_; }
  std::string toString() const override;

 private:
  WiPhyID phy_;
  NetIfcID ifc_;
  WDevID wdev_;
};

// NL80211_CMD_REG_CHANGE
class NY80211_API RegDomainChanged final : public Nl80211Event {
 public:
  explicit RegDomainChanged(GenlMessage const& message);
  ~RegDomainChanged() override;
  RegDomainChanged(RegDomainChanged const&) = delete;
  RegDomainChanged& operator=(RegDomainChanged const&) = delete;
  WiPhyID const& phy() const noexcept { return phy_; }
  KernelEnum<nl80211_reg_initiator> initiator() const noexcept { return initiator_; }
  KernelEnum<nl80211_reg_type> type() const noexcept { return type_; }
  std::string toString() const override;

 private:
  WiPhyID phy_;
  KernelEnum<nl80211_reg_initiator> initiator_ = NL80211_REGDOM_SET_BY_CORE;
  KernelEnum<nl80211_reg_type> type_ = NL80211_REGDOM_TYPE_COUNTRY;
};

// NL80211_CMD_CH_SWITCH_NOTIFY
class NY80211_API ChannelSwitched final : public Nl80211Event {
 public:
  explicit ChannelSwitched(GenlMessage const& message);
  ~ChannelSwitched() override;
  ChannelSwitched(ChannelSwitched const&) = delete;
  ChannelSwitched& operator=(ChannelSwitched const&) = delete;
  VapID const& vap() const noexcept { return vap_; }
  ChannelInfo const& channel() const noexcept { return channel_; }
  std::string toString() const override;

 private:
  VapID vap_;
  ChannelInfo channel_;
};

// What the three scan notifications share: the interface, the scanned
// frequencies and the scanned SSIDs (raw bytes).
class NY80211_API ScanEventBase : public Nl80211Event {
 public:
  ~ScanEventBase() override;
  ScanEventBase(ScanEventBase const&) = delete;
  ScanEventBase& operator=(ScanEventBase const&) = delete;
  VapID const& vap() const noexcept { return vap_; }
  std::vector<quenta_common::MHz> const& freqs() const noexcept { return freqs_; }
  std::vector<std::vector<std::byte>> const& ssids() const noexcept { return ssids_; }

 protected:
  ScanEventBase(GenlMessage const& message, std::uint8_t command);
  // "scan {} for {:p}, scanned freqs [{}]"
  std::string text(std::string_view what) const;

 private:
  VapID vap_;
  std::vector<quenta_common::MHz> freqs_;
  std::vector<std::vector<std::byte>> ssids_;
};

// One scan notification class per command; Final names what happened.
template <std::uint8_t Command, class Final>
class ScanEvent : public ScanEventBase {
 public:
  static constexpr std::uint8_t command = Command;
  explicit ScanEvent(GenlMessage const& message) : ScanEventBase(message, Command) {}
  std::string toString() const override { return text(Final::what); }
};

class NY80211_API ScanStarted final : public ScanEvent<NL80211_CMD_TRIGGER_SCAN, ScanStarted> {
 public:
  static constexpr std::string_view what = "started";
  using ScanEvent::ScanEvent;
  ~ScanStarted() override;
  ScanStarted(ScanStarted const&) = delete;
  ScanStarted& operator=(ScanStarted const&) = delete;
};

class NY80211_API ScanFinished final
    : public ScanEvent<NL80211_CMD_NEW_SCAN_RESULTS, ScanFinished> {
 public:
  static constexpr std::string_view what = "finished";
  using ScanEvent::ScanEvent;
  ~ScanFinished() override;
  ScanFinished(ScanFinished const&) = delete;
  ScanFinished& operator=(ScanFinished const&) = delete;
};

class NY80211_API ScanAborted final : public ScanEvent<NL80211_CMD_SCAN_ABORTED, ScanAborted> {
 public:
  static constexpr std::string_view what = "aborted";
  using ScanEvent::ScanEvent;
  ~ScanAborted() override;
  ScanAborted(ScanAborted const&) = delete;
  ScanAborted& operator=(ScanAborted const&) = delete;
};

}  // namespace Event
}  // namespace Ny80211
