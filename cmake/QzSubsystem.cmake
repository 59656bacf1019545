# qz_add_subsystem(name HEADERS ... SOURCES ... [INTERNAL ...] [DEPENDS ...])
#
# Makes the OBJECT library qz_<name> for one layer of the library. Paths are
# relative to src/qzutil/. HEADERS are public: they are installed under
# include/qzutil/ with their folder and collected in QZ_PUBLIC_HEADERS for the
# shared library. DEPENDS names the lower layers it may include; naming one
# that was not added yet stops the configure, so an upward dependency between
# layers cannot be built.

set_property(GLOBAL PROPERTY QZ_SUBSYSTEMS "")
set_property(GLOBAL PROPERTY QZ_PUBLIC_HEADERS "")

function(qz_add_subsystem name)
  cmake_parse_arguments(ARG "" "" "HEADERS;SOURCES;INTERNAL;DEPENDS" ${ARGN})
  get_property(known GLOBAL PROPERTY QZ_SUBSYSTEMS)
  foreach(dep IN LISTS ARG_DEPENDS)
    if(NOT dep IN_LIST known)
      message(FATAL_ERROR "subsystem '${name}' depends on '${dep}', which is not below it")
    endif()
  endforeach()

  set(root ${PROJECT_SOURCE_DIR}/src/qzutil)
  list(TRANSFORM ARG_HEADERS PREPEND ${root}/)
  list(TRANSFORM ARG_SOURCES PREPEND ${root}/)
  list(TRANSFORM ARG_INTERNAL PREPEND ${root}/)

  set(target qz_${name})
  add_library(${target} OBJECT ${ARG_SOURCES} ${ARG_INTERNAL} ${ARG_HEADERS})
  target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/src>)
  target_compile_definitions(${target} PRIVATE QZUTIL_BUILDING
    QZUTIL_VERSION_TEXT="${PROJECT_VERSION}")
  qz_apply_warnings(${target})
  # The library's functions are not interposed (see -Bsymbolic-functions on
  # the shared library), so the compiler may inline across them.
  target_compile_options(${target} PRIVATE -fno-semantic-interposition)
  foreach(dep IN LISTS ARG_DEPENDS)
    target_link_libraries(${target} PUBLIC qz_${dep})
  endforeach()

  set_property(GLOBAL APPEND PROPERTY QZ_SUBSYSTEMS ${name})
  set_property(GLOBAL APPEND PROPERTY QZ_PUBLIC_HEADERS ${ARG_HEADERS})
endfunction()
