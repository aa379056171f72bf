# Installation: the headers of VxCommon as they are included, and the package that find_package(VxCommon) reads. Programs
# and libraries install themselves where they are made; the platform libraries are a package of their own.
include(CMakePackageConfigHelpers)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/VxCommon)

install(DIRECTORY VxCommon DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
if(TARGET VxCommon)
  install(TARGETS VxCommon EXPORT VxCommonTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(EXPORT VxCommonTargets NAMESPACE VxCommon:: DESTINATION ${package_dir})
endif()
if(TARGET vxhost)
  install(TARGETS vxhost RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
configure_package_config_file(CMake/VxCommonConfig.cmake.in "${PROJECT_BINARY_DIR}/VxCommonConfig.cmake"
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file("${PROJECT_BINARY_DIR}/VxCommonConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/VxCommonConfig.cmake" "${PROJECT_BINARY_DIR}/VxCommonConfigVersion.cmake"
  DESTINATION ${package_dir})
