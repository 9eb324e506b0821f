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
    if(TARGET tmbserver)
      target_link_libraries(${target} PRIVATE tmbserver)
    endif()
    target_compile_definitions(${target} PRIVATE
      TEMBRA_SOURCE_DIR="${CMAKE_SOURCE_DIR}" TEMBRA_BINARY_DIR="${CMAKE_BINARY_DIR}")
    set_target_properties(${target} PROPERTIES
                          RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
    if(kind STREQUAL "integration")
      add_dependencies(${target} TMBAudioClient)
      foreach(program tmbasrv tmbaudio)
        if(TARGET ${program})
          add_dependencies(${target} ${program})
        endif()
      endforeach()
    endif()
    gtest_discover_tests(${target} TEST_PREFIX "${name}." DISCOVERY_MODE PRE_TEST
                         PROPERTIES TIMEOUT ${timeout} LABELS ${kind})
  endforeach()
endfunction()

tembra_tests(unit 60)
tembra_tests(integration 180)
