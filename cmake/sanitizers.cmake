# ORX_SANITIZE=address,undefined or ORX_SANITIZE=thread applies the sanitizer
# to every target, library and tests alike, so the whole process is checked.
if(ORX_SANITIZE)
  set(_flags -fsanitize=${ORX_SANITIZE} -fno-omit-frame-pointer)
  if(ORX_SANITIZE MATCHES "undefined")
    list(APPEND _flags -fno-sanitize-recover=undefined)
  endif()
  add_compile_options(${_flags})
  add_link_options(-fsanitize=${ORX_SANITIZE})
endif()
