# QZ_SANITIZER picks the sanitizer build: empty, "address;undefined" or
# "thread". Anything else stops the configure. Flags apply to every target
# of the build, tests and tools included, so the runtime sees all our code.

if(QZ_SANITIZER STREQUAL "")
  set(QZ_SANITIZE_FLAGS "")
elseif(QZ_SANITIZER STREQUAL "address;undefined")
  set(QZ_SANITIZE_FLAGS -fsanitize=address,undefined -fno-sanitize-recover=all
      -fno-omit-frame-pointer)
elseif(QZ_SANITIZER STREQUAL "thread")
  set(QZ_SANITIZE_FLAGS -fsanitize=thread -fno-omit-frame-pointer)
else()
  message(FATAL_ERROR "QZ_SANITIZER must be empty, 'address;undefined' or 'thread', "
                      "not '${QZ_SANITIZER}'")
endif()

if(QZ_SANITIZE_FLAGS)
  add_compile_options(${QZ_SANITIZE_FLAGS})
  add_link_options(${QZ_SANITIZE_FLAGS})
endif()
