list(APPEND ny80211_sources
  events/CodeTexts.cpp
  events/DfsEvents.cpp
  events/EventSockets.cpp
  events/Nl80211Decoder.cpp
  events/Nl80211Events.cpp
  events/RtNetlinkMessage.cpp
  events/StaEvents.cpp
  events/WextDecoder.cpp
  events/WextEvents.cpp)
