#pragma once
// Owning handle of a libnl callback set, for the sockets' connect steps.

#include <memory>

#include <netlink/handlers.h>

namespace Ny80211::detail {

struct NlCbDeleter {
  void operator()(nl_cb* callbacks) const noexcept { nl_cb_put(callbacks); }
};
using NlCbPtr = std::unique_ptr<nl_cb, NlCbDeleter>;

}  // namespace Ny80211::detail
