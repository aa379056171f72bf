# find_package(VxPlatform): the platform libraries as VxPlatform::<Name>.
include(CMakeFindDependencyMacro)
find_dependency(nlohmann_json)
include("${CMAKE_CURRENT_LIST_DIR}/VxPlatformTargets.cmake")
