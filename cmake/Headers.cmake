# SPDX-License-Identifier: Apache-2.0
# Brings the public headers together in the build folder, as they are installed: include/reflyze, and below
# its folder `record` those headers of the record that <reflyze/record.h> includes, however deep. There they
# include each other by their place below include/, so that names such as "util/convert.h" of a foreign
# project and ours never meet.

set(REFLYZE_HEADERS_DIR ${PROJECT_BINARY_DIR}/include)

function(reflyze_stage_headers)
  file(GLOB waiting CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR} include/reflyze/*.h)
  set(staged "")
  while(waiting)
    list(POP_FRONT waiting header)
    list(APPEND staged ${header})
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${header})
    file(STRINGS ${header} includes REGEX "^#include \"(util|sor|src)/")
    foreach(include ${includes})
      string(REGEX REPLACE "^#include \"([^\"]+)\".*" "\\1" include "${include}")
      if(NOT include IN_LIST staged AND NOT include IN_LIST waiting)
        list(APPEND waiting ${include})
      endif()
    endforeach()
    file(READ ${header} text)
    string(REGEX REPLACE "#include \"((util|sor|src)/[^\"]+)\"" "#include \"reflyze/record/\\1\"" text "${text}")
    if(header MATCHES "^include/")
      set(place ${PROJECT_BINARY_DIR}/${header})
    else()
      set(place ${REFLYZE_HEADERS_DIR}/reflyze/record/${header})
    endif()
    file(CONFIGURE OUTPUT ${place} CONTENT "${text}" @ONLY)  # writes only what has changed
  endwhile()
endfunction()

reflyze_stage_headers()
