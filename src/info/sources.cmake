list(APPEND ny80211_sources info/Channel.cpp info/WiPhyInfo.cpp)
