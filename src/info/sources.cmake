list(APPEND ny80211_sources info/Channel.cpp info/WiPhyInfo.cpp)
list(APPEND ny80211_sources info/InterfaceInfo.cpp info/Ssid.cpp)
list(APPEND ny80211_sources info/Bss.cpp info/BssCollectors.cpp info/ChannelInfoCollector.cpp)
list(APPEND ny80211_sources info/RateInfo.cpp info/Station.cpp info/Survey.cpp)
