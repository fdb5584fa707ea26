# orx/orx_all.h includes every other public header.
file(GLOB headers RELATIVE ${INCLUDE_DIR} ${INCLUDE_DIR}/orx/*.h)
file(READ ${INCLUDE_DIR}/orx/orx_all.h umbrella)
foreach(h IN LISTS headers)
  if(NOT h STREQUAL "orx/orx_all.h" AND NOT umbrella MATCHES "#include \"${h}\"")
    message(FATAL_ERROR "orx/orx_all.h does not include ${h}")
  endif()
endforeach()
