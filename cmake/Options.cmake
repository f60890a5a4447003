# SPDX-License-Identifier: Apache-2.0
# How all code of this project is compiled. A project that takes this one in keeps its own ways: nothing here
# reaches a target that is not ours, nor one that links the library.

add_library(reflyze_options INTERFACE)
target_compile_features(reflyze_options INTERFACE cxx_std_17)
target_include_directories(reflyze_options INTERFACE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
# The same trace must give the same table with every compiler and at every level of optimisation: no
# contraction of a*b+c, no reordering of floating-point sums. What the shared library shows is not there to be
# replaced, so calls inside it need not allow for that.
target_compile_options(reflyze_options INTERFACE
  -ffp-contract=off -fno-fast-math -fno-semantic-interposition -Wall -Wextra -Wpedantic -Wshadow
  "-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=")
# The registers of the oldest x86 compute wider than a double, and round twice.
if(NOT EMSCRIPTEN AND CMAKE_SIZEOF_VOID_P EQUAL 4
   AND CMAKE_SYSTEM_PROCESSOR MATCHES "^(i[3-6]86|x86|x86_64|AMD64)$")
  target_compile_options(reflyze_options INTERFACE -msse2 -mfpmath=sse)
endif()
if(REFLYZE_WERROR)
  target_compile_options(reflyze_options INTERFACE -Werror)
endif()
if(REFLYZE_SANITIZE)
  target_compile_options(reflyze_options INTERFACE
    -fsanitize=${REFLYZE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(reflyze_options INTERFACE -fsanitize=${REFLYZE_SANITIZE})
endif()
if(REFLYZE_FUZZ)
  target_compile_options(reflyze_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

# Makes targets ours. To be called before they link anything else, so that our own headers are found first.
function(reflyze_own)
  foreach(target ${ARGN})
    target_link_libraries(${target} PRIVATE reflyze_options)
    set_target_properties(${target} PROPERTIES
      CXX_EXTENSIONS OFF POSITION_INDEPENDENT_CODE ON CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  endforeach()
endfunction()

# Limits what a shared object shows to what a version script lists.
function(reflyze_shows target script)
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${script})
  target_link_options(${target} PRIVATE "-Wl,--version-script=${script}")
endfunction()

# Lends what is loaded at run time the handler of failed assertions, and nothing else of a program.
function(reflyze_lends_handler target)
  target_link_options(${target} PRIVATE -Wl,--export-dynamic-symbol=ReflyzeHostAssertion)
endfunction()
