# NY80211_SANITIZE=address,undefined or thread instruments every target.
if(NY80211_SANITIZE)
  set(_flags -fsanitize=${NY80211_SANITIZE} -fno-omit-frame-pointer)
  if(NY80211_SANITIZE MATCHES "undefined")
    list(APPEND _flags -fno-sanitize-recover=all)
  endif()
  add_compile_options(${_flags})
  add_link_options(${_flags})
endif()
