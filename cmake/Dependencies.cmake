find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)

pkg_check_modules(LIBNL REQUIRED IMPORTED_TARGET libnl-3.0 libnl-genl-3.0 libnl-route-3.0)
pkg_check_modules(LTTNG_UST REQUIRED IMPORTED_TARGET lttng-ust)

# fmt: the installed library, or (to prove the code against another fmt
# release) headers of that release in header-only mode.
if(NY80211_FMT_HEADERS)
  if(NOT EXISTS "${NY80211_FMT_HEADERS}/fmt/format.h")
    message(FATAL_ERROR "NY80211_FMT_HEADERS=${NY80211_FMT_HEADERS} holds no fmt/format.h")
  endif()
  add_library(ny80211_fmt INTERFACE)
  target_include_directories(ny80211_fmt SYSTEM BEFORE INTERFACE "${NY80211_FMT_HEADERS}")
  target_compile_definitions(ny80211_fmt INTERFACE FMT_HEADER_ONLY=1)
  add_library(fmt::fmt ALIAS ny80211_fmt)
  file(STRINGS "${NY80211_FMT_HEADERS}/fmt/base.h" _fmt_version REGEX "define FMT_VERSION")
  if(NOT _fmt_version)
    file(STRINGS "${NY80211_FMT_HEADERS}/fmt/core.h" _fmt_version REGEX "define FMT_VERSION")
  endif()
  message(STATUS "fmt header-only from ${NY80211_FMT_HEADERS}: ${_fmt_version}")
else()
  find_package(fmt REQUIRED)
endif()

# POCO Foundation. The cross build has only the arm64 runtime library (the
# arm64 -dev package cannot be installed beside the native one) and uses the
# architecture-independent headers of the native package.
find_package(Poco QUIET COMPONENTS Foundation CONFIG)
if(NOT TARGET Poco::Foundation)
  find_path(POCO_INCLUDE_DIR Poco/Foundation.h REQUIRED
            PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH)
  find_library(POCO_FOUNDATION_LIBRARY REQUIRED
               NAMES PocoFoundation libPocoFoundation.so.80)
  add_library(Poco::Foundation UNKNOWN IMPORTED)
  set_target_properties(Poco::Foundation PROPERTIES
    IMPORTED_LOCATION "${POCO_FOUNDATION_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${POCO_INCLUDE_DIR}")
endif()

find_program(LTTNG_GEN_TP lttng-gen-tp REQUIRED)
