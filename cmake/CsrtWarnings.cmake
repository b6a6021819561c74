# csrt_warnings: the warnings every target of this project is compiled with; linked PRIVATE.
add_library(csrt_warnings INTERFACE)
target_compile_options(csrt_warnings INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor)
if(CSRT_WARNINGS_AS_ERRORS)
  target_compile_options(csrt_warnings INTERFACE -Werror)
endif()

# The same doubles on every processor: no fused multiply-add that another one would not do.
add_compile_options(-ffp-contract=off)

if(CSRT_SANITIZE)
  add_compile_options(-fsanitize=${CSRT_SANITIZE} -fno-omit-frame-pointer)
  if(CSRT_SANITIZE MATCHES undefined)
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
  add_link_options(-fsanitize=${CSRT_SANITIZE})
endif()
