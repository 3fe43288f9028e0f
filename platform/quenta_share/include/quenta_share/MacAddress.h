#pragma once

#include "quenta_share/BaseAddress.h"

// A 6-byte IEEE MAC address; the default is all zero.
class MacAddress : public BaseAddress<MacAddress, 6> {
 public:
  using BaseAddress::BaseAddress;
};

// A 3-byte IEEE organisation identifier.
class Oui : public BaseAddress<Oui, 3> {
 public:
  using BaseAddress::BaseAddress;
};
