list(APPEND ny80211_sources elements/Element.cpp elements/Elements.cpp elements/NeighborReport.cpp)
