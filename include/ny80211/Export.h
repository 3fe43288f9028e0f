#pragma once
// The library is built with hidden symbols; what it exports is marked.
#define NY80211_API __attribute__((visibility("default")))
