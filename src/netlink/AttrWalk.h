#pragma once
// The attribute walk of nla_for_each_attr (the same validity test as nla_ok,
// the same step as nla_next), inline: the decoders' hot loops pay no call per
// attribute. Internal to the library.

#include <linux/netlink.h>

namespace Ny80211::detail {

// nla_type without the call.
inline int typeOf(nlattr const* attr) { return attr->nla_type & NLA_TYPE_MASK; }

// Calls f on each valid attribute in [head, head + length) in order until f
// returns true; gives the attribute f stopped at, or null.
template <class F>
nlattr* forEachValid(nlattr* head, long length, F&& f) {
  if (head == nullptr) return nullptr;
  auto* attr = head;
  long remaining = length;
  while (remaining >= static_cast<long>(sizeof(nlattr)) && attr->nla_len >= sizeof(nlattr) &&
         attr->nla_len <= remaining) {
    if (f(attr)) return attr;
    long const step = NLA_ALIGN(attr->nla_len);
    remaining -= step;
    attr = reinterpret_cast<nlattr*>(reinterpret_cast<char*>(attr) + step);
  }
  return nullptr;
}

}  // namespace Ny80211::detail
