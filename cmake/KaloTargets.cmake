# How the tree's targets are made. The install component "firmware" is the tree that a node runs
# as /usr/kalo: bin, sbin, lib, webapi.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_INSTALL_RPATH "$ORIGIN/../lib")
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
include_directories(${CMAKE_SOURCE_DIR})

find_program(CCACHE ccache)
if(CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  # Paths relative to the checkout, so that another checkout finds what this one compiled.
  set(CMAKE_CXX_COMPILER_LAUNCHER
      ${CMAKE_COMMAND} -E env CCACHE_BASEDIR=${CMAKE_SOURCE_DIR} CCACHE_NOHASHDIR=1 ${CCACHE})
endif()

# A router's memory is small: what nobody calls is left out.
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG -ffunction-sections -fdata-sections")
# The library's checks of sizes need the optimiser.
string(APPEND CMAKE_CXX_FLAGS_RELEASE " -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3")
if(CMAKE_BUILD_TYPE STREQUAL "Release")
  add_link_options(-Wl,--gc-sections)
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # g++ 12 sees an overlap in '"text" + std::to_string(n)' when it optimises (GCC bug 105651).
  add_compile_options($<$<CONFIG:Release>:-Wno-restrict>)
endif()
if(KALO_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
  # The checks are described by half a million addresses, which a program that may lie anywhere would
  # have to correct at each start and carry in each patch.
  add_link_options($<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-no-pie>)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # It takes the standard library's error categories for what they are not.
    add_compile_options(-fno-sanitize=vptr)
  endif()
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND NOT KALO_FUZZ)
    # One shared run-time for programs and the modules that they load.
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-runtime-dir
                    OUTPUT_VARIABLE runtime_dir OUTPUT_STRIP_TRAILING_WHITESPACE)
    add_link_options(-shared-libsan -Wl,-rpath,${runtime_dir})
  endif()
else()
  # What makes a memory error harder to use. packaging/check-hardening looks for each of them.
  include(CheckCXXCompilerFlag)
  include(CheckPIESupported)
  check_pie_supported(LANGUAGES CXX)
  add_compile_options(-fstack-protector-strong -fstack-clash-protection)
  add_link_options(-Wl,-z,relro,-z,now)
  # Checked jumps and returns: a compiler knows the flag of its own processor.
  foreach(flag -fcf-protection=full -mbranch-protection=standard)
    string(MAKE_C_IDENTIFIER "KALO_HAS${flag}" has_flag)
    check_cxx_compiler_flag(${flag} ${has_flag})
    if(${has_flag})
      add_compile_options(${flag})
    endif()
  endforeach()
endif()
if(KALO_COVERAGE)
  add_compile_options(--coverage)
  add_link_options(--coverage)
endif()

find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
# Every library of the tree, found once.
find_package(CLI11 REQUIRED)
pkg_check_modules(GNUTLS REQUIRED IMPORTED_TARGET gnutls)
pkg_check_modules(JSONCPP REQUIRED IMPORTED_TARGET jsoncpp)
pkg_check_modules(LIBCURL REQUIRED IMPORTED_TARGET libcurl)
# The host libraries load libcurl by the name that the linker would note.
function(kalo_soname variable library)
  execute_process(COMMAND sh -c "${CMAKE_OBJDUMP} -p '${library}' | sed -n 's/ *SONAME *//p'"
                  OUTPUT_VARIABLE name OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(NOT name)
    message(FATAL_ERROR "no name in ${library}")
  endif()
  set(${variable} "${name}" PARENT_SCOPE)
endfunction()
kalo_soname(KALO_CURL_SONAME "${pkgcfg_lib_LIBCURL_curl}")
pkg_check_modules(LIBXCRYPT REQUIRED IMPORTED_TARGET libxcrypt)
pkg_check_modules(MICROHTTPD REQUIRED IMPORTED_TARGET libmicrohttpd)
pkg_check_modules(SDBUSCPP REQUIRED IMPORTED_TARGET sdbus-c++)
pkg_check_modules(SECCOMP REQUIRED IMPORTED_TARGET libseccomp)
pkg_check_modules(SYSTEMD REQUIRED IMPORTED_TARGET libsystemd)

# Lets the firmware's files find their libraries where they find them when installed: in ../lib. A path
# that CMake changes at installation ends with an empty entry until then, which is whatever folder a
# program is started in.
function(kalo_firmware)
  set_target_properties(${ARGN} PROPERTIES BUILD_WITH_INSTALL_RPATH ON)
endfunction()
foreach(area services programs)
  file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/${area})
  file(CREATE_LINK ../lib ${CMAKE_BINARY_DIR}/${area}/lib SYMBOLIC)
endforeach()

# What is built for another processor: the firmware, and the tests that can run in an emulator.
add_custom_target(cross-build)

# kalo_library(NAME sources…  LIBS libraries…): a shared library of host/.
function(kalo_library name)
  cmake_parse_arguments(ARG "" "" "LIBS" ${ARGN})
  add_library(${name} SHARED ${ARG_UNPARSED_ARGUMENTS})
  target_link_libraries(${name} PUBLIC PkgConfig::JSONCPP ${ARG_LIBS})
  if(NOT KALO_FUZZ)  # there the run-time stands in the program alone
    target_link_options(${name} PRIVATE -Wl,--no-undefined)
  endif()
  kalo_firmware(${name})
  set_target_properties(${name} PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
  install(TARGETS ${name} LIBRARY DESTINATION lib COMPONENT firmware)
  add_dependencies(cross-build ${name})
endfunction()

# kalo_module(NAME sources…  DESCRIPTION file  LIBS libraries…): a module that webapid loads. The
# platform's functions stay undefined in it; the worker supplies them.
function(kalo_module name)
  cmake_parse_arguments(ARG "" "DESCRIPTION" "LIBS" ${ARGN})
  add_library(${name} MODULE ${ARG_UNPARSED_ARGUMENTS})
  set_target_properties(${name} PROPERTIES PREFIX "" CXX_VISIBILITY_PRESET hidden
                                           VISIBILITY_INLINES_HIDDEN ON)
  target_link_libraries(${name} PRIVATE PkgConfig::JSONCPP ${ARG_LIBS})
  kalo_firmware(${name})
  install(TARGETS ${name} LIBRARY DESTINATION webapi COMPONENT firmware)
  add_dependencies(cross-build ${name})
  install(FILES ${ARG_DESCRIPTION} DESTINATION webapi COMPONENT firmware)
endfunction()

# kalo_program(NAME sources…  [FOLDER bin|sbin]  LIBS libraries…): with FOLDER it is part of the
# firmware.
function(kalo_program name)
  cmake_parse_arguments(ARG "" "FOLDER" "LIBS" ${ARGN})
  add_executable(${name} ${ARG_UNPARSED_ARGUMENTS})
  target_link_libraries(${name} PRIVATE PkgConfig::JSONCPP ${ARG_LIBS})
  if(ARG_FOLDER)
    kalo_firmware(${name})
    install(TARGETS ${name} RUNTIME DESTINATION ${ARG_FOLDER} COMPONENT firmware)
    add_dependencies(cross-build ${name})
  endif()
endfunction()

# kalo_test(NAME sources…  [NO_ROOT] [CROSS] [CROSS_FILTER filter]  [LIBS libraries…]
# [TIMEOUT seconds]): one test program, run whole as one ctest in a private root of its own; NO_ROOT
# for tests that touch no fixed path, CROSS for those that start no program of ours, which an emulator
# cannot do by itself (tests/arm64 runs the others too), CROSS_FILTER for the test cases that it can run.
function(kalo_test name)
  cmake_parse_arguments(ARG "NO_ROOT;CROSS" "TIMEOUT;CROSS_FILTER" "LIBS" ${ARGN})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 240)
  endif()
  if(NOT ARG_CROSS_FILTER)
    set(ARG_CROSS_FILTER "*")
  endif()
  add_executable(${name} ${ARG_UNPARSED_ARGUMENTS})
  target_link_libraries(${name} PRIVATE GTest::gmock GTest::gtest GTest::gtest_main
                                        PkgConfig::JSONCPP ${ARG_LIBS})
  if(KALO_COVERAGE)
    target_sources(${name} PRIVATE ${CMAKE_SOURCE_DIR}/tests/support/coverage_exit.cpp)
  endif()
  if(CMAKE_CROSSCOMPILING)
    # The private root is made by this machine's own program.
    add_test(NAME ${name}
      COMMAND ${CMAKE_SOURCE_DIR}/build/dev/box/private-root --bind ${CMAKE_BINARY_DIR} --
              ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${name}>
              --gtest_filter=${ARG_CROSS_FILTER})
    if(ARG_CROSS)
      add_dependencies(cross-build ${name})
    else()
      set_tests_properties(${name} PROPERTIES LABELS starts-programs)
    endif()
  elseif(ARG_NO_ROOT)
    add_test(NAME ${name} COMMAND ${name})
  else()
    add_test(NAME ${name} COMMAND private-root --bind ${CMAKE_BINARY_DIR} -- $<TARGET_FILE:${name}>)
  endif()
  set_tests_properties(${name} PROPERTIES TIMEOUT ${ARG_TIMEOUT})
endfunction()
