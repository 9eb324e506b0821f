# Tests: a folder below tests/unit or tests/integration is one executable.

find_package(GTest REQUIRED)
include(GoogleTest)

# Compiling tests is most of a build: what they share is compiled once, and none is optimised.
tembra_sources(support_sources tests/support/*.cpp)
add_library(test_support OBJECT ${support_sources})
set_target_properties(test_support PROPERTIES POSITION_INDEPENDENT_CODE OFF)  # all go into programs
target_compile_options(test_support PRIVATE -fPIE -O0 "SHELL:-Xclang -fno-pch-timestamp")
target_compile_definitions(test_support PUBLIC
  TEMBRA_SOURCE_DIR="${CMAKE_SOURCE_DIR}" TEMBRA_BINARY_DIR="${CMAKE_BINARY_DIR}")
target_include_directories(test_support PUBLIC ${CMAKE_SOURCE_DIR} ${CMAKE_SOURCE_DIR}/tests
                           ${CMAKE_SOURCE_DIR}/platform/linux)
target_link_libraries(test_support PUBLIC GTest::gmock GTest::gtest tmbcore)
target_precompile_headers(test_support PRIVATE <gmock/gmock.h> <gtest/gtest.h> <algorithm> <atomic>
                           <chrono> <filesystem> <fstream> <functional> <map> <memory> <random>
                           <string> <thread> <vector>)

# A locale with a decimal comma, which few machines have installed; support/CommaLocale.h uses it.
set(LOCALES ${CMAKE_BINARY_DIR}/locales)
find_program(LOCALEDEF localedef)
if(LOCALEDEF AND NOT EXISTS ${LOCALES}/de_DE.UTF-8)
  file(MAKE_DIRECTORY ${LOCALES})
  execute_process(COMMAND ${LOCALEDEF} -i de_DE -f UTF-8 ${LOCALES}/de_DE.UTF-8
                  OUTPUT_QUIET ERROR_QUIET)
endif()

function(tembra_tests kind timeout)
  if(TEMBRA_SANITIZE)
    math(EXPR timeout "3 * ${timeout}")
  endif()
  file(GLOB folders CONFIGURE_DEPENDS LIST_DIRECTORIES true tests/${kind}/*)
  foreach(folder ${folders})
    tembra_sources(sources ${folder}/*.cpp)
    if(NOT sources)
      continue()
    endif()
    get_filename_component(name ${folder} NAME)
    # What patches machine code is tested where it is built.
    if(name MATCHES "^(mach_override|override_patched)" AND NOT TARGET PkgConfig::UDIS86)
      continue()
    endif()
    set(target ${kind}_${name})
    add_executable(${target} ${sources} $<TARGET_OBJECTS:test_support>)
    target_compile_options(${target} PRIVATE -O0 "SHELL:-Xclang -fno-pch-timestamp")
    target_precompile_headers(${target} REUSE_FROM test_support)
    target_link_libraries(${target} PRIVATE test_support GTest::gtest_main)
    if(TARGET tmbserver AND (kind STREQUAL "integration" OR name MATCHES "^server"))
      target_link_libraries(${target} PRIVATE tmbserver)
    endif()
    # A test's own versions of platform functions must also serve the shared libraries.
    set_target_properties(${target} PROPERTIES ENABLE_EXPORTS ON
                          RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
    if(kind STREQUAL "integration")
      target_link_libraries(${target} PRIVATE tmbtools)
      add_dependencies(${target} TMBAudioClient)
      foreach(program tmbasrv tmbaudio)
        if(TARGET ${program})
          add_dependencies(${target} ${program})
        endif()
      endforeach()
    endif()
    # A unit test is alone with the code it links: no bundle is loaded beside it, and the platform
    # has no place for its files.
    set(environment "")
    if(kind STREQUAL "unit")
      set(environment ENVIRONMENT "TEMBRA_HAL_PLUGIN_PATH="
          ENVIRONMENT_MODIFICATION "XDG_RUNTIME_DIR=set:/dev/null")
    endif()
    # Deadlines are granted until the machine's processors are used up: whoever asks is alone. So
    # are fifty processes that must agree in time.
    if(name MATCHES "^scheduling" OR target STREQUAL "integration_hog_mode")
      list(APPEND environment RUN_SERIAL ON)
    endif()
    # Sixteen players and a server at once, which a sanitizer makes slow, want the machine.
    if(TEMBRA_SANITIZE AND target STREQUAL "integration_end_to_end")
      list(APPEND environment RUN_SERIAL ON)
    endif()
    gtest_discover_tests(${target} TEST_PREFIX "${name}." DISCOVERY_MODE PRE_TEST
                         PROPERTIES TIMEOUT ${timeout} LABELS ${kind} ${environment})
  endforeach()
endfunction()

tembra_tests(unit 60)
tembra_tests(integration 180)

# The way that this build does not take is tested all the same.
if(TARGET unit_override_interposed)
  target_sources(unit_override_interposed PRIVATE src/runtime/TMBACLNO_Interposed.cpp
                 platform/linux/hal/InterposableEntries.cpp)
endif()

# Every layout that leaves the plug-in, held by the compiler; native/build does the same for its target.
add_library(layouts OBJECT tests/layouts/layouts.cpp)
target_link_libraries(layouts PRIVATE tmbcore)

# What the code puts on the wire, held against readers written in another language.
find_package(Python3 COMPONENTS Interpreter)
add_executable(wire_writer tests/wire/write_wire.cpp)
target_link_libraries(wire_writer PRIVATE tmbcore)
set_target_properties(wire_writer PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
if(Python3_FOUND)
  add_test(NAME wire.check COMMAND ${Python3_EXECUTABLE} ${CMAKE_SOURCE_DIR}/tests/wire/check_wire.py
           $<TARGET_FILE:wire_writer> ${CMAKE_SOURCE_DIR}/tests/golden)
  set_tests_properties(wire.check PROPERTIES TIMEOUT 60 LABELS unit)
endif()

# The plug-in that the tests of the HAL host load.
if(TARGET integration_hal)
  set(FAKE_BUNDLE ${CMAKE_BINARY_DIR}/tests/plug-ins/Fake.plugin/Contents)
  add_library(FakePlugIn MODULE tests/integration/hal/bundle/FakePlugIn.cpp)
  target_link_libraries(FakePlugIn PRIVATE tmbhal tmbplatform)
  set_target_properties(FakePlugIn PROPERTIES PREFIX "" SUFFIX ""
                        LIBRARY_OUTPUT_DIRECTORY ${FAKE_BUNDLE}/Linux)
  configure_file(tests/integration/hal/bundle/Info.plist ${FAKE_BUNDLE}/Info.plist COPYONLY)
  add_dependencies(integration_hal FakePlugIn)
endif()

# A client that is linked to a fixed place, where the tool chain can do that; it is run from other
# places too, so it names its libraries' place in full.
if(TARGET integration_default_override)
  add_executable(override_client tests/integration/default_override/client/client.c)
  target_link_libraries(override_client PRIVATE tmbhal tmbplatform ${CMAKE_DL_LIBS})
  # As C++, so that a sanitizer's runtime for C++ comes along with what the libraries need.
  set_target_properties(override_client PROPERTIES BUILD_RPATH_USE_ORIGIN OFF LINKER_LANGUAGE CXX
                        RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
  if(NOT TEMBRA_SANITIZE STREQUAL "thread")
    set_target_properties(override_client PROPERTIES POSITION_INDEPENDENT_CODE OFF)
    target_link_options(override_client PRIVATE -no-pie)
  endif()
  add_dependencies(integration_default_override override_client FakePlugIn)
endif()

# What the bundle tests load.
if(TARGET integration_cf_bundle)
  add_library(TestFactory MODULE tests/integration/cf_bundle/bundle/TestFactory.cpp)
  target_link_libraries(TestFactory PRIVATE tmbplatform)
  set_target_properties(TestFactory PROPERTIES PREFIX "" SUFFIX ""
                        LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests/plug-ins)
  if(TEMBRA_SANITIZE)
    target_link_options(TestFactory PRIVATE -Wl,-z,undefs)
  endif()
  add_dependencies(integration_cf_bundle TestFactory)
endif()
