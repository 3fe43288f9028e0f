# Real rtnetlink sockets in a network namespace of the test's own (root);
# qemu-user opens no netlink sockets, so these stay out of the AArch64 stage.
ny80211_unit_test(event_socket_test EventSocketTest.cpp ContextTest.cpp LABEL unit-netlink-socket)
# Floods and a soak of driver events through a running Context.
ny80211_unit_test(event_flood_test FloodTest.cpp LABEL unit-netlink-socket)
