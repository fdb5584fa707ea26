# Warnings every target of the project builds with. -Wconversion catches the
# silent narrowing that file-format code is most prone to; -Wno-sign-conversion
# is left out on purpose: it would flood the C interop code with casts that
# hide more than they show.
set(ORX_WARNINGS -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wno-sign-conversion)
# GCC 12 reports impossible overlaps inside std::string concatenation at -O2
# (a known false positive of its -Wrestrict); the check adds nothing for our
# own code, which uses no restrict pointers.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  list(APPEND ORX_WARNINGS -Wno-restrict)
endif()

function(orx_warnings target)
  target_compile_options(${target} PRIVATE ${ORX_WARNINGS})
endfunction()
