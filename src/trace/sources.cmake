list(APPEND ny80211_sources trace/Trace.cpp)
