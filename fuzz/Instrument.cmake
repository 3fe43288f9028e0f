# The fuzz build: clang's libFuzzer with AddressSanitizer and
# UndefinedBehaviorSanitizer (which stops at the first report). Every target
# carries the coverage instrumentation that libFuzzer steers by; only the fuzz
# targets link its main (fuzz/CMakeLists.txt).
if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang" OR NOT CMAKE_C_COMPILER_ID STREQUAL "Clang")
  message(FATAL_ERROR "NY80211_FUZZ needs clang: CC=clang-14 CXX=clang++-14")
endif()
if(NY80211_SANITIZE AND NOT NY80211_SANITIZE STREQUAL "address,undefined")
  message(FATAL_ERROR "NY80211_FUZZ builds with address,undefined, not ${NY80211_SANITIZE}")
endif()
set(NY80211_SANITIZE address,undefined)
add_compile_options(-fsanitize=fuzzer-no-link)
