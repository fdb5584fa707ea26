# Warnings every target of the project builds with. -Wconversion catches the
# silent narrowing that file-format code is most prone to; -Wno-sign-conversion
# is left out on purpose: it would flood the C interop code with casts that
# hide more than they show.
set(ORX_WARNINGS -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wno-sign-conversion)

function(orx_warnings target)
  target_compile_options(${target} PRIVATE ${ORX_WARNINGS})
endfunction()
