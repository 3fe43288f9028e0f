list(APPEND ny80211_sources
  diag/AttrFmt.cpp
  diag/AttrTables.cpp)
