list(APPEND ny80211_sources
  netlink/AttrStream.cpp
  netlink/CallbackSet.cpp
  netlink/CommandNames.cpp
  netlink/CommandSocket.cpp
  netlink/Context.cpp
  netlink/Error.cpp
  netlink/GenlMessage.cpp)
