# What an installation holds beside the plug-ins and tools, which their own folders install: the libraries, the headers, and
# what pkg-config and find_package(Vorn) read. It may be moved: everything in it is found relative to itself.

include(CMakePackageConfigHelpers)

set(VORN_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Vorn)

install(DIRECTORY include/vorn DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(TARGETS vorn EXPORT VornTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
if(TARGET vorngraph)
  install(TARGETS vorngraph EXPORT VornTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
endif()
if(VORN_SYSTEM_TLOGGING)
  cmake_path(GET TLOGGING_LIBRARY PARENT_PATH VORN_TLOGGING_LIBDIR)
  set(VORN_TLOGGING_LIBS "-L${VORN_TLOGGING_LIBDIR} -ltlogging")
  set(VORN_TLOGGING_CFLAGS "-I${TLOGGING_INCLUDE_DIR}")
else()
  set(VORN_TLOGGING_LIBS "-ltlogging")
  install(FILES tlogging/tlogging.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT tlogging)
  install(TARGETS tlogging EXPORT VornTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT tlogging)
endif()
install(EXPORT VornTargets NAMESPACE Vorn:: DESTINATION ${VORN_CMAKE_DIR})

configure_package_config_file(cmake/VornConfig.cmake.in VornConfig.cmake INSTALL_DESTINATION ${VORN_CMAKE_DIR}
                              PATH_VARS VORN_PLUGIN_DIR)
write_basic_package_version_file(VornConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/VornConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/VornConfigVersion.cmake
        DESTINATION ${VORN_CMAKE_DIR})

cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig
           OUTPUT_VARIABLE VORN_PREFIX_FROM_PC)
set(pcs vorn.pc)
if(TARGET vorngraph)
  list(APPEND pcs vorngraph.pc)
endif()
foreach(pc IN LISTS pcs)
  configure_file(cmake/${pc}.in ${pc} @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${pc} DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
