#pragma once
// Events from wireless-extension messages: the chip driver's private "ath"
// events (station management, keys, DFS), carried as custom events
// (IWEVCUSTOM) in rtnetlink link messages. Each constructor reads its
// message and throws Error when it is not the event the class expects or
// its payload has the wrong size.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <Poco/Notification.h>

#include "ny80211/CodeTexts.h"
#include "ny80211/Export.h"
#include "quenta_common/MHz.h"
#include "quenta_share/MacAddress.h"

namespace Ny80211 {

class RtNetlinkMessage;

namespace Event {

class NY80211_API WextEvent : public Poco::Notification {
 public:
  ~WextEvent() override;
  // Shared through Poco::AutoPtr and never changed: events are not copied.
  WextEvent(WextEvent const&) = delete;
  WextEvent& operator=(WextEvent const&) = delete;
  virtual std::string toString() const = 0;
  // The interface the link message names.
  std::string const& ifName() const noexcept { return ifName_; }

 protected:
  explicit WextEvent(RtNetlinkMessage const& message);

 private:
  std::string ifName_;
};

class NY80211_API AthWextEvent : public WextEvent {
 public:
  static constexpr std::uint16_t customEventID = 0x8C02;  // IWEVCUSTOM
  ~AthWextEvent() override;
  AthWextEvent(AthWextEvent const&) = delete;
  AthWextEvent& operator=(AthWextEvent const&) = delete;

 protected:
  // Error "unexpected wext event ID ({} != {})" before the name is read, then
  // Error "unexpected ath event ID ({} != {})".
  AthWextEvent(RtNetlinkMessage const& message, std::uint16_t expectedAthEvent);
};

// The 24-byte payload of the station events: two codes and an address.
class NY80211_API StaAuthConfirm final : public AthWextEvent {
 public:
  static constexpr std::uint16_t athEvent = 7;
  explicit StaAuthConfirm(RtNetlinkMessage const& message);
  ~StaAuthConfirm() override;
  StaAuthConfirm(StaAuthConfirm const&) = delete;
  StaAuthConfirm& operator=(StaAuthConfirm const&) = delete;
  MacAddress const& sta() const noexcept { return sta_; }
  std::uint32_t status() const noexcept { return status_; }
  std::string toString() const override;

 private:
  MacAddress sta_;
  std::uint32_t status_ = 0;
};

class NY80211_API StaAssocConfirm final : public AthWextEvent {
 public:
  static constexpr std::uint16_t athEvent = 8;
  explicit StaAssocConfirm(RtNetlinkMessage const& message);
  ~StaAssocConfirm() override;
  StaAssocConfirm(StaAssocConfirm const&) = delete;
  StaAssocConfirm& operator=(StaAssocConfirm const&) = delete;
  std::uint32_t status() const noexcept { return status_; }
  std::string toString() const override;

 private:
  std::uint32_t status_ = 0;
};

class NY80211_API StaDeauthConfirm final : public AthWextEvent {
 public:
  static constexpr std::uint16_t athEvent = 9;
  explicit StaDeauthConfirm(RtNetlinkMessage const& message);
  ~StaDeauthConfirm() override;
  StaDeauthConfirm(StaDeauthConfirm const&) = delete;
  StaDeauthConfirm& operator=(StaDeauthConfirm const&) = delete;
  MacAddress const& sta() const noexcept { return sta_; }
  std::uint32_t reason() const noexcept { return reason_; }
  std::string toString() const override;

 private:
  MacAddress sta_;
  std::uint32_t reason_ = 0;
};

class NY80211_API StaAuthIndication final : public AthWextEvent {
 public:
  static constexpr std::uint16_t athEvent = 10;
  explicit StaAuthIndication(RtNetlinkMessage const& message);
  ~StaAuthIndication() override;
  StaAuthIndication(StaAuthIndication const&) = delete;
  StaAuthIndication& operator=(StaAuthIndication const&) = delete;
  MacAddress const& sta() const noexcept { return sta_; }
  std::uint32_t status() const noexcept { return status_; }
  std::string toString() const override;

 private:
  MacAddress sta_;
  std::uint32_t status_ = 0;
};

class NY80211_API StaDeauthIndication final : public AthWextEvent {
 public:
  static constexpr std::uint16_t athEvent = 19;
  explicit StaDeauthIndication(RtNetlinkMessage const& message);
  ~StaDeauthIndication() override;
  StaDeauthIndication(StaDeauthIndication const&) = delete;
  StaDeauthIndication& operator=(StaDeauthIndication const&) = delete;
  MacAddress const& sta() const noexcept { return sta_; }
  std::uint32_t reason() const noexcept { return reason_; }
  std::string toString() const override;

 private:
  MacAddress sta_;
  std::uint32_t reason_ = 0;
};

class NY80211_API StaDisassocIndication final : public AthWextEvent {
 public:
  static constexpr std::uint16_t athEvent = 20;
  explicit StaDisassocIndication(RtNetlinkMessage const& message);
  ~StaDisassocIndication() override;
  StaDisassocIndication(StaDisassocIndication const&) = delete;
  StaDisassocIndication& operator=(StaDisassocIndication const&) = delete;
  MacAddress const& sta() const noexcept { return sta_; }
  std::uint32_t reason() const noexcept { return reason_; }
  std::string toString() const override;

 private:
  MacAddress sta_;
  std::uint32_t reason_ = 0;
};

class NY80211_API StaAssocIndication final : public AthWextEvent {
 public:
  static constexpr std::uint16_t athEvent = 21;
  explicit StaAssocIndication(RtNetlinkMessage const& message);
  ~StaAssocIndication() override;
  StaAssocIndication(StaAssocIndication const&) = delete;
  StaAssocIndication& operator=(StaAssocIndication const&) = delete;
  MacAddress const& sta() const noexcept { return sta_; }
  std::string toString() const override;

 private:
  MacAddress sta_;
};

class NY80211_API StaReassocIndication final : public AthWextEvent {
 public:
  static constexpr std::uint16_t athEvent = 22;
  explicit StaReassocIndication(RtNetlinkMessage const& message);
  ~StaReassocIndication() override;
  StaReassocIndication(StaReassocIndication const&) = delete;
  StaReassocIndication& operator=(StaReassocIndication const&) = delete;
  MacAddress const& sta() const noexcept { return sta_; }
  std::string toString() const override;

 private:
  MacAddress sta_;
};

class NY80211_API KeySetDoneIndication final : public AthWextEvent {
 public:
  static constexpr std::uint16_t athEvent = 24;
  explicit KeySetDoneIndication(RtNetlinkMessage const& message);
  ~KeySetDoneIndication() override;
  KeySetDoneIndication(KeySetDoneIndication const&) = delete;
  KeySetDoneIndication& operator=(KeySetDoneIndication const&) = delete;
  MacAddress const& sta() const noexcept { return sta_; }
  std::string toString() const override;

 private:
  MacAddress sta_;
};

class NY80211_API StaAuthorized final : public AthWextEvent {
 public:
  static constexpr std::uint16_t athEvent = 30;
  explicit StaAuthorized(RtNetlinkMessage const& message);
  ~StaAuthorized() override;
  StaAuthorized(StaAuthorized const&) = delete;
  StaAuthorized& operator=(StaAuthorized const&) = delete;
  MacAddress const& sta() const noexcept { return sta_; }
  std::uint8_t channel() const noexcept { return channel_; }
  std::uint16_t aid() const noexcept { return aid_; }
  ieee80211_phymode phyMode() const noexcept { return phyMode_; }
  std::uint8_t rxChains() const noexcept { return rxChains_; }
  std::uint8_t txChains() const noexcept { return txChains_; }
  bool qam256() const noexcept { return qam256_; }
  std::uint16_t vlan() const noexcept { return vlan_; }
  std::string toString() const override;

 private:
  MacAddress sta_;
  std::uint8_t channel_ = 0;
  std::uint16_t aid_ = 0;
  ieee80211_phymode phyMode_ = IEEE80211_MODE_AUTO;
  std::uint8_t rxChains_ = 0;
  std::uint8_t txChains_ = 0;
  bool qam256_ = false;
  std::uint16_t vlan_ = 0;
};

class NY80211_API StaLeave final : public AthWextEvent {
 public:
  static constexpr std::uint16_t athEvent = 31;
  explicit StaLeave(RtNetlinkMessage const& message);
  ~StaLeave() override;
  StaLeave(StaLeave const&) = delete;
  StaLeave& operator=(StaLeave const&) = delete;
  MacAddress const& sta() const noexcept { return sta_; }
  std::uint8_t channel() const noexcept { return channel_; }
  std::uint16_t aid() const noexcept { return aid_; }
  std::uint32_t reason() const noexcept { return reason_; }
  std::string toString() const override;

 private:
  MacAddress sta_;
  std::uint8_t channel_ = 0;
  std::uint16_t aid_ = 0;
  std::uint32_t reason_ = 0;
};

class NY80211_API CacExpired final : public AthWextEvent {
 public:
  static constexpr std::uint16_t athEvent = 35;
  explicit CacExpired(RtNetlinkMessage const& message);
  ~CacExpired() override;
  CacExpired(CacExpired const&) = delete;
  CacExpired& operator=(CacExpired const&) = delete;
  // The interface whose CAC expired (at most 15 characters). Not name(),
  // which Poco::Notification declares.
  std::string const& cacIfName() const noexcept { return cacIfName_; }
  std::string toString() const override;

 private:
  std::string cacIfName_;
};

class NY80211_API StaDisassocConfirm final : public AthWextEvent {
 public:
  static constexpr std::uint16_t athEvent = 41;
  explicit StaDisassocConfirm(RtNetlinkMessage const& message);
  ~StaDisassocConfirm() override;
  StaDisassocConfirm(StaDisassocConfirm const&) = delete;
  StaDisassocConfirm& operator=(StaDisassocConfirm const&) = delete;
  MacAddress const& sta() const noexcept { return sta_; }
  std::uint32_t status() const noexcept { return status_; }
  std::uint32_t reason() const noexcept { return reason_; }
  std::string toString() const override;

 private:
  MacAddress sta_;
  std::uint32_t status_ = 0;
  std::uint32_t reason_ = 0;
};

class NY80211_API NeighborRequest final : public AthWextEvent {
 public:
  static constexpr std::uint16_t athEvent = 50;
  using Block = std::array<std::byte, 64>;
  explicit NeighborRequest(RtNetlinkMessage const& message);
  ~NeighborRequest() override;
  NeighborRequest(NeighborRequest const&) = delete;
  NeighborRequest& operator=(NeighborRequest const&) = delete;
  MacAddress const& sta() const noexcept { return sta_; }
  // Kept as the driver sent it, not interpreted.
  Block const& block() const noexcept { return block_; }
  std::string toString() const override;

 private:
  MacAddress sta_;
  Block block_{};
};

// The DFS events: one frequency each, and one phrase per class.
class NY80211_API DfsEventBase : public AthWextEvent {
 public:
  ~DfsEventBase() override;
  DfsEventBase(DfsEventBase const&) = delete;
  DfsEventBase& operator=(DfsEventBase const&) = delete;
  quenta_common::MHz frequency() const noexcept { return frequency_; }

 protected:
  DfsEventBase(RtNetlinkMessage const& message, std::uint16_t athEvent);
  // "{}: {} on {} MHz (channel {})"
  std::string text(std::string_view phrase) const;

 private:
  quenta_common::MHz frequency_;
};

template <std::uint16_t AthEvent, class Final>
class DfsEvent : public DfsEventBase {
 public:
  static constexpr std::uint16_t athEvent = AthEvent;
  explicit DfsEvent(RtNetlinkMessage const& message) : DfsEventBase(message, AthEvent) {}
  std::string toString() const override { return text(Final::phrase); }
};

class NY80211_API CacReset final : public DfsEvent<1, CacReset> {
 public:
  static constexpr std::string_view phrase = "CAC started, or CAC completed status reset,";
  using DfsEvent::DfsEvent;
  ~CacReset() override;
  CacReset(CacReset const&) = delete;
  CacReset& operator=(CacReset const&) = delete;
};

class NY80211_API RadarDetected final : public DfsEvent<44, RadarDetected> {
 public:
  static constexpr std::string_view phrase = detail::radarDetectedText;
  using DfsEvent::DfsEvent;
  ~RadarDetected() override;
  RadarDetected(RadarDetected const&) = delete;
  RadarDetected& operator=(RadarDetected const&) = delete;
};

class NY80211_API CacStarted final : public DfsEvent<45, CacStarted> {
 public:
  static constexpr std::string_view phrase = "CAC timer started";
  using DfsEvent::DfsEvent;
  ~CacStarted() override;
  CacStarted(CacStarted const&) = delete;
  CacStarted& operator=(CacStarted const&) = delete;
};

class NY80211_API CacCompleted final : public DfsEvent<46, CacCompleted> {
 public:
  static constexpr std::string_view phrase = "CAC timer completed";
  using DfsEvent::DfsEvent;
  ~CacCompleted() override;
  CacCompleted(CacCompleted const&) = delete;
  CacCompleted& operator=(CacCompleted const&) = delete;
};

class NY80211_API NolStarted final : public DfsEvent<47, NolStarted> {
 public:
  static constexpr std::string_view phrase = "NOL started";
  using DfsEvent::DfsEvent;
  ~NolStarted() override;
  NolStarted(NolStarted const&) = delete;
  NolStarted& operator=(NolStarted const&) = delete;
};

class NY80211_API NolFinished final : public DfsEvent<48, NolFinished> {
 public:
  static constexpr std::string_view phrase = "NOL finished";
  using DfsEvent::DfsEvent;
  ~NolFinished() override;
  NolFinished(NolFinished const&) = delete;
  NolFinished& operator=(NolFinished const&) = delete;
};

class NY80211_API PreCacStarted final : public DfsEvent<51, PreCacStarted> {
 public:
  static constexpr std::string_view phrase = "PreCAC started";
  using DfsEvent::DfsEvent;
  ~PreCacStarted() override;
  PreCacStarted(PreCacStarted const&) = delete;
  PreCacStarted& operator=(PreCacStarted const&) = delete;
};

class NY80211_API PreCacCompleted final : public DfsEvent<52, PreCacCompleted> {
 public:
  static constexpr std::string_view phrase = "PreCAC completed";
  using DfsEvent::DfsEvent;
  ~PreCacCompleted() override;
  PreCacCompleted(PreCacCompleted const&) = delete;
  PreCacCompleted& operator=(PreCacCompleted const&) = delete;
};

}  // namespace Event
}  // namespace Ny80211
