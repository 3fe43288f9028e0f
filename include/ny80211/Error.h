#pragma once
// The library's exceptions. Texts are short, lower-case, and name the thing
// and the value.

#include <stdexcept>
#include <string>
#include <string_view>

#include "ny80211/Export.h"

struct nlmsgerr;

namespace Ny80211 {

// Keeps its own copy of the text, which what() returns, so that a holder can
// lengthen it (the command socket appends the failed command).
class NY80211_API Error : public std::runtime_error {
 public:
  explicit Error(std::string const& text);
  Error(Error const&) = default;
  Error& operator=(Error const&) = default;
  Error(Error&&) = default;
  Error& operator=(Error&&) = default;
  ~Error() override;

  char const* what() const noexcept override;
  void append(std::string_view text);

 private:
  std::string text_;
};

// A requested attribute is absent.
class NY80211_API AttrNotFound : public Error {
 public:
  using Error::Error;
  AttrNotFound(AttrNotFound const&) = default;
  AttrNotFound& operator=(AttrNotFound const&) = default;
  AttrNotFound(AttrNotFound&&) = default;
  AttrNotFound& operator=(AttrNotFound&&) = default;
  ~AttrNotFound() override;
};

// The kernel rejected a command.
class NY80211_API CmdFailure : public Error {
 public:
  using Error::Error;
  CmdFailure(CmdFailure const&) = default;
  CmdFailure& operator=(CmdFailure const&) = default;
  CmdFailure(CmdFailure&&) = default;
  CmdFailure& operator=(CmdFailure&&) = default;
  ~CmdFailure() override;
};

// The kernel marked a dump inconsistent (NLM_F_DUMP_INTR); repeat the dump
// for a consistent result.
class NY80211_API DumpInterrupted : public Error {
 public:
  using Error::Error;
  DumpInterrupted(DumpInterrupted const&) = default;
  DumpInterrupted& operator=(DumpInterrupted const&) = default;
  DumpInterrupted(DumpInterrupted&&) = default;
  DumpInterrupted& operator=(DumpInterrupted&&) = default;
  ~DumpInterrupted() override;
};

// "Netlink error: <system text> (<error>)", followed by " [<message>]" when
// the kernel sent an extended acknowledgement message.
NY80211_API std::string to_string(nlmsgerr* err);

}  // namespace Ny80211
