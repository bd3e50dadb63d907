# How everything in this tree is compiled, and where the build puts it: the build tree has the shape of an installation, so
# that plug-ins are found by their bare names there too.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()

set(VORN_PLUGIN_DIR ${CMAKE_INSTALL_LIBDIR}/vorn)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(VORN_PLUGIN_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib/vorn)

# Programs find the libraries beside their own folder, and everything finds what was outside the system's folders when it was
# built, such as the libtlogging.so of a device.
set(CMAKE_INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
set(CMAKE_INSTALL_RPATH_USE_LINK_PATH ON)

# g++ 12 sees overlapping copies in "text" + std::string where there are none.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  add_compile_options(-Wno-restrict)
endif()

# Calls within libvorn.so need no detour that would let a client replace them.
add_compile_options(-fno-semantic-interposition)

# Log lines name their source from the root of this tree, whatever machine built it.
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor> -Wformat=2
                    -fmacro-prefix-map=${CMAKE_SOURCE_DIR}/=)

if(VORN_SANITIZE)
  add_compile_options(-fsanitize=${VORN_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${VORN_SANITIZE})
endif()

# The sanitizers' own dlopen() does not see the run path of libvorn.so, so tests name the folder.
set(VORN_TEST_ENVIRONMENT "LD_LIBRARY_PATH=${VORN_PLUGIN_OUTPUT_DIRECTORY}")

# vorn_add_plugin(NAME SOURCE... [LIBS library...]): the plug-in libNAME.so, installed with the standard blocks.
function(vorn_add_plugin name)
  cmake_parse_arguments(ARG "" "" "LIBS" ${ARGN})
  add_library(${name} MODULE ${ARG_UNPARSED_ARGUMENTS})
  target_link_libraries(${name} PRIVATE vorn ${ARG_LIBS})
  set_target_properties(${name} PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${VORN_PLUGIN_OUTPUT_DIRECTORY}
                                           INSTALL_RPATH "$ORIGIN/..")
  install(TARGETS ${name} LIBRARY DESTINATION ${VORN_PLUGIN_DIR})
endfunction()

# vorn_leave_out(WHAT WHY): has the summary say that WHAT is not built.
function(vorn_leave_out what why)
  set_property(GLOBAL APPEND PROPERTY VORN_LEFT_OUT "${what} (${why})")
endfunction()

# vorn_find_library(MODULE FOR what...): looks for a library by its pkg-config module. Where it is there, PkgConfig::MODULE is a
# target to link to; where it is missing, the caller leaves out what needs it, and the summary says so.
function(vorn_find_library module)
  cmake_parse_arguments(ARG "" "" "FOR" ${ARGN})
  pkg_check_modules(${module} QUIET IMPORTED_TARGET GLOBAL ${module})
  if(NOT TARGET PkgConfig::${module})
    list(JOIN ARG_FOR ", " what)
    vorn_leave_out("${what}" "no ${module}")
  endif()
endfunction()

function(vorn_print_summary)
  message(STATUS "Vorn ${PROJECT_VERSION}, ${CMAKE_BUILD_TYPE}, to be installed in ${CMAKE_INSTALL_PREFIX}")
  get_property(leftOut GLOBAL PROPERTY VORN_LEFT_OUT)
  foreach(line IN LISTS leftOut)
    message(STATUS "Left out: ${line}")
  endforeach()
endfunction()
