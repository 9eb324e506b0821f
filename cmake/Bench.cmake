# Benchmarks; not tests, and never timed ones. bench/run runs them.

find_package(benchmark REQUIRED)

add_executable(bench_micro bench/micro.cpp)
target_link_libraries(bench_micro PRIVATE benchmark::benchmark tmbcore)

tembra_sources(end_to_end_sources bench/*.cpp)
list(FILTER end_to_end_sources EXCLUDE REGEX "/bench/(micro|override).cpp$")
add_executable(bench_end_to_end ${end_to_end_sources})
target_include_directories(bench_end_to_end PRIVATE ${CMAKE_SOURCE_DIR})
target_link_libraries(bench_end_to_end PRIVATE tmbhal tmbplatform)
add_dependencies(bench_end_to_end TMBAudioClient)
if(TARGET tmbasrv)
  add_dependencies(bench_end_to_end tmbasrv)
endif()

set_target_properties(bench_micro bench_end_to_end PROPERTIES
                      RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bench)

# Where functions are patched.
if(TARGET PkgConfig::UDIS86)
  add_executable(bench_override bench/override.cpp)
  target_link_libraries(bench_override PRIVATE benchmark::benchmark tmbcore)
  set_target_properties(bench_override PROPERTIES
                        RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bench)
endif()
