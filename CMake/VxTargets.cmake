# Settings that every target of this repository shares, and the functions that make targets with them.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_CXX_VISIBILITY_PRESET default)
set(THREADS_PREFER_PTHREAD_FLAG ON)
find_package(Threads REQUIRED)

# Installed programs and libraries find their libraries beside themselves, wherever the installation is moved.
set(CMAKE_INSTALL_RPATH "$ORIGIN;$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")

find_program(VX_CCACHE ccache)
if(VX_CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER "${VX_CCACHE}")
endif()

add_library(VxBuildSettings INTERFACE)
target_compile_options(VxBuildSettings INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow
  # Results must not depend on whether the machine fuses a multiplication with an addition.
  -ffp-contract=off
  $<$<BOOL:${VX_WERROR}>:-Werror>
  $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety -Werror=thread-safety>)
target_link_libraries(VxBuildSettings INTERFACE Threads::Threads)
if(VX_SANITIZE)
  target_compile_options(VxBuildSettings INTERFACE -fsanitize=${VX_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  # clang's check of function types would make the library export descriptions of them.
  target_compile_options(VxBuildSettings INTERFACE $<$<CXX_COMPILER_ID:Clang>:-fno-sanitize=function>)
  if(VX_SANITIZE STREQUAL "thread")
    # Asio has fences, which the sanitizer does not follow; GCC says so in every source that includes it.
    target_compile_options(VxBuildSettings INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-tsan>)
  endif()
  target_link_options(VxBuildSettings INTERFACE -fsanitize=${VX_SANITIZE})
endif()

if(VX_BUILD_FUZZERS)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "VX_BUILD_FUZZERS needs clang: use the preset fuzz")
  endif()
  # Coverage feedback from the libraries as well, not from the targets alone.
  target_compile_options(VxBuildSettings INTERFACE -fsanitize=fuzzer-no-link)
endif()

# What test programs run with: every finding of a sanitizer ends the program, so that no test passes over it.
set(VX_TEST_ENVIRONMENT
  "ASAN_OPTIONS=detect_leaks=1:detect_stack_use_after_return=1:strict_string_checks=1:check_initialization_order=1"
  "UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1"
  "TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1")

# vx_source_root(target folder): file tags in exceptions and logs are the source's path below `folder`.
# Also where a compiler cache (ccache with base_dir) passes sources by paths relative to the build folder.
function(vx_source_root target folder)
  file(RELATIVE_PATH relative "${CMAKE_BINARY_DIR}" "${folder}")
  string(REGEX REPLACE "/$" "" relative "${relative}")
  target_compile_options(${target} PRIVATE "-fmacro-prefix-map=${folder}/=" "-fmacro-prefix-map=${relative}/=")
endfunction()

# vx_add_platform_library(Name [LINKS public...] [PRIVATE_LINKS private...])
# A shared reference platform library from include/<Name>/*.h and src/*.cpp of the current folder.
function(vx_add_platform_library name)
  cmake_parse_arguments(ARG "" "" "LINKS;PRIVATE_LINKS" ${ARGN})
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS src/*.cpp src/*.h Server/*.cpp Server/*.h include/*.h)
  add_library(${name} SHARED ${sources})
  add_library(VxPlatform::${name} ALIAS ${name})
  target_include_directories(${name}
    PUBLIC $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>
    PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC ${ARG_LINKS} PRIVATE $<BUILD_INTERFACE:VxBuildSettings> ${ARG_PRIVATE_LINKS})
  target_compile_features(${name} PUBLIC cxx_std_20)
  set_target_properties(${name} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  vx_source_root(${name} "${CMAKE_SOURCE_DIR}/Platform")
  install(TARGETS ${name} EXPORT VxPlatformTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
endfunction()

# vx_add_tests(target folder [LINKS libraries...]): one test program from folder/*Test.cpp, its cases known to ctest.
function(vx_add_tests target folder)
  cmake_parse_arguments(ARG "" "" "LINKS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${folder}/*Test.cpp)
  add_executable(${target} ${sources})
  target_link_libraries(${target} PRIVATE VxBuildSettings ${ARG_LINKS} GTest::gmock_main)
  # Halves the time that test sources take to compile. What they test is built as the preset says.
  target_compile_options(${target} PRIVATE -O0)
  vx_source_root(${target} "${CMAKE_SOURCE_DIR}")
  gtest_discover_tests(${target} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 300)
  # The discovery passes no lists on, so the environment is set on what it found.
  set(environment_file "${CMAKE_CURRENT_BINARY_DIR}/${target}_environment.cmake")
  file(WRITE "${environment_file}" "foreach(test IN LISTS ${target}_TESTS)
  set_tests_properties(\"\${test}\" PROPERTIES ENVIRONMENT \"${VX_TEST_ENVIRONMENT}\")
endforeach()
")
  set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES "${environment_file}")
  list(TRANSFORM sources PREPEND "${CMAKE_CURRENT_SOURCE_DIR}/" REGEX "^[^/]")
  set_property(GLOBAL APPEND PROPERTY VX_TEST_SOURCES ${sources})
endfunction()

# vx_require_all_tests(): fails the configuration when a *Test.cpp belongs to no test program.
function(vx_require_all_tests)
  file(GLOB_RECURSE all CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*Test.cpp)
  list(FILTER all EXCLUDE REGEX "/Tests/Consumer/")  # A project of its own, see scripts/check.
  get_property(used GLOBAL PROPERTY VX_TEST_SOURCES)
  foreach(source ${all})
    if(NOT source IN_LIST used)
      message(FATAL_ERROR "${source} is in no test program: add its folder to Tests/CMakeLists.txt")
    endif()
  endforeach()
endfunction()
