# What `cmake --install` puts where, so that an outside project finds `VakDtm::vakdtm` by `find_package(VakDtm)`.
include(CMakePackageConfigHelpers)

set(VAKDTM_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/VakDtm)

install(TARGETS vakdtm EXPORT VakDtmTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/src/vakdtm DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  FILES_MATCHING PATTERN "*.h")
install(EXPORT VakDtmTargets NAMESPACE VakDtm:: DESTINATION ${VAKDTM_PACKAGE_DIR})

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/VakDtmConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/VakDtmConfig.cmake INSTALL_DESTINATION ${VAKDTM_PACKAGE_DIR})
# Before version 1 a new minor version may change the interface.
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/VakDtmConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/VakDtmConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/VakDtmConfigVersion.cmake
  ${CMAKE_CURRENT_LIST_DIR}/VakDtmLibraries.cmake DESTINATION ${VAKDTM_PACKAGE_DIR})

install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})

if(VAKDTM_BUILD_COMMAND)
  # With BUILD_SHARED_LIBS the command finds the library beside itself, wherever the prefix is moved to.
  file(RELATIVE_PATH libFromBin /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
  set_target_properties(vakdtm_main PROPERTIES INSTALL_RPATH "$ORIGIN/${libFromBin}")
  install(TARGETS vakdtm_main RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
