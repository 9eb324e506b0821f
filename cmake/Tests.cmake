# Tests: a folder below tests/unit or tests/integration is one executable.

find_package(GTest REQUIRED)
include(GoogleTest)

tembra_sources(support_sources tests/support/*.cpp)

function(tembra_tests kind timeout)
  file(GLOB folders CONFIGURE_DEPENDS LIST_DIRECTORIES true tests/${kind}/*)
  foreach(folder ${folders})
    tembra_sources(sources ${folder}/*.cpp)
    if(NOT sources)
      continue()
    endif()
    get_filename_component(name ${folder} NAME)
    set(target ${kind}_${name})
    add_executable(${target} ${sources} ${support_sources})
    target_include_directories(${target} PRIVATE ${CMAKE_SOURCE_DIR} ${CMAKE_SOURCE_DIR}/tests
                               ${CMAKE_SOURCE_DIR}/platform/linux)
    target_link_libraries(${target} PRIVATE GTest::gmock GTest::gtest_main tmbcore)
    if(TARGET tmbserver AND (kind STREQUAL "integration" OR name MATCHES "^server"))
      target_link_libraries(${target} PRIVATE tmbserver)
    endif()
    target_compile_definitions(${target} PRIVATE
      TEMBRA_SOURCE_DIR="${CMAKE_SOURCE_DIR}" TEMBRA_BINARY_DIR="${CMAKE_BINARY_DIR}")
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
    # A unit test is alone with the code it links: no bundle is loaded beside it.
    set(environment "")
    if(kind STREQUAL "unit")
      set(environment ENVIRONMENT "TEMBRA_HAL_PLUGIN_PATH=")
    endif()
    gtest_discover_tests(${target} TEST_PREFIX "${name}." DISCOVERY_MODE PRE_TEST
                         PROPERTIES TIMEOUT ${timeout} LABELS ${kind} ${environment})
  endforeach()
endfunction()

tembra_tests(unit 60)
tembra_tests(integration 180)

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
