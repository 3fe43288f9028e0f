#pragma once

#include <cerrno>
#include <system_error>

#include <unistd.h>

namespace TEVPoll::detail {

inline void closeDescriptor(int fd) noexcept {
  if (fd < 0) return;
  while (::close(fd) < 0 && errno == EINTR) {
  }
}

[[noreturn]] inline void throwErrno(char const* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace TEVPoll::detail
