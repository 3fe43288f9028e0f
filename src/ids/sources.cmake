list(APPEND ny80211_sources ids/Identifiers.cpp)
