# Warning flags for qzutil's own targets, in one place. Third-party code
# (GoogleTest headers come in as system includes) is not affected.

set(QZ_WARNING_FLAGS
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion
  -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-qual -Wformat=2
  -Wimplicit-fallthrough -Wmissing-declarations -Wundef -Wvla)

if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  list(APPEND QZ_WARNING_FLAGS -Wthread-safety)
endif()

# qz_apply_warnings(target): our warnings, as errors when QZ_WERROR is on.
function(qz_apply_warnings target)
  target_compile_options(${target} PRIVATE ${QZ_WARNING_FLAGS})
  if(QZ_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
