# The libraries and programs, bottom up. A folder's sources are whatever stands in it.

function(tembra_sources out)
  file(GLOB found CONFIGURE_DEPENDS ${ARGN})
  set(${out} ${found} PARENT_SCOPE)
endfunction()

set(PLATFORM_INCLUDE ${CMAKE_SOURCE_DIR}/platform/include)

# Of the two ways to see the calls of the HAL, the one that is not taken.
if(TARGET PkgConfig::UDIS86)
  set(other_way "/(hal/InterposableEntries|runtime/TMBACLNO_Interposed).cpp$")
else()
  set(other_way "/(hal/PatchableEntries|runtime/TMBACLNO_Patched).cpp$")
endif()

# What the plug-in calls and Linux lacks.
tembra_sources(platform_sources platform/linux/*/*.cpp)
list(FILTER platform_sources EXCLUDE REGEX "/platform/linux/hal/")
add_library(tmbplatform SHARED ${platform_sources})
target_include_directories(tmbplatform BEFORE PUBLIC ${PLATFORM_INCLUDE} PRIVATE platform/linux)
target_link_libraries(tmbplatform PRIVATE PkgConfig::PLIST PUBLIC ${BLOCKSRUNTIME} Threads::Threads)
target_link_options(tmbplatform PRIVATE -Wl,-Bsymbolic-functions -Wl,-z,nodelete)

# The audio HAL that loads the plug-in into a process.
tembra_sources(hal_sources platform/linux/hal/*.cpp)
list(FILTER hal_sources EXCLUDE REGEX ${other_way})
add_library(tmbhal SHARED ${hal_sources})
target_include_directories(tmbhal PRIVATE platform/linux)
target_link_libraries(tmbhal PUBLIC tmbplatform PRIVATE ${CMAKE_DL_LIBS})
target_link_options(tmbhal PRIVATE -Wl,-Bsymbolic-functions -Wl,-z,nodelete)

# The system itself, one object library a folder; all of it once more as an archive for tests and
# for the server's half of the protocol.
add_library(tmbcore STATIC)
set(core_folders support objects formats controls persistence telemetry device runtime client)
if(TARGET PkgConfig::UDIS86)
  list(APPEND core_folders library/sys/mac/mach_override)
endif()
foreach(folder ${core_folders})
  tembra_sources(folder_sources src/${folder}/*.cpp)
  list(FILTER folder_sources EXCLUDE REGEX ${other_way})
  string(REPLACE "/" "_" folder ${folder})
  if(folder_sources)
    add_library(tmb_${folder} OBJECT ${folder_sources})
    target_include_directories(tmb_${folder} PUBLIC src)
    target_include_directories(tmb_${folder} BEFORE PUBLIC ${PLATFORM_INCLUDE})
    target_sources(tmbcore PRIVATE $<TARGET_OBJECTS:tmb_${folder}>)
    list(APPEND core_objects $<TARGET_OBJECTS:tmb_${folder}>)
  endif()
endforeach()
target_include_directories(tmbcore PUBLIC src)
target_link_libraries(tmbcore PUBLIC tmbhal tmbplatform)
set_target_properties(tmbcore PROPERTIES LINKER_LANGUAGE CXX)
if(TARGET PkgConfig::UDIS86)
  target_link_libraries(tmb_library_sys_mac_mach_override PRIVATE PkgConfig::UDIS86)
  target_link_libraries(tmbcore PUBLIC PkgConfig::UDIS86)
endif()

# The bundle.
set(BUNDLE ${CMAKE_LIBRARY_OUTPUT_DIRECTORY}/tembra/plug-ins/TMBAudioClient.plugin/Contents)
add_library(TMBAudioClient MODULE ${core_objects})
target_link_libraries(TMBAudioClient PRIVATE tmbhal tmbplatform)
if(TARGET PkgConfig::UDIS86)
  target_link_libraries(TMBAudioClient PRIVATE PkgConfig::UDIS86)
endif()
target_link_options(TMBAudioClient PRIVATE -Wl,-z,nodelete -Wl,-z,defs
                    -Wl,--version-script=${CMAKE_SOURCE_DIR}/src/client/bundle/exports.map)
set_target_properties(TMBAudioClient PROPERTIES PREFIX "" SUFFIX "" LINKER_LANGUAGE CXX
                      LIBRARY_OUTPUT_DIRECTORY ${BUNDLE}/Linux
                      LINK_DEPENDS ${CMAKE_SOURCE_DIR}/src/client/bundle/exports.map)
if(TEMBRA_SANITIZE)
  # Sanitizer runtimes live in the executable, so their symbols stay undefined in a shared object.
  target_link_options(TMBAudioClient PRIVATE -Wl,-z,undefs)
endif()
configure_file(src/client/bundle/Info.plist.in ${BUNDLE}/Info.plist @ONLY)
configure_file(src/client/bundle/en.lproj/Localizable.strings
               ${BUNDLE}/Resources/en.lproj/Localizable.strings COPYONLY)

# The stand-in server; the parts that tests drive without a process are a library of their own.
tembra_sources(server_sources server/*.cpp)
list(FILTER server_sources EXCLUDE REGEX "/server/main.cpp$")
if(server_sources)
  add_library(tmbserver STATIC ${server_sources})
  target_include_directories(tmbserver PUBLIC ${CMAKE_SOURCE_DIR} ${CMAKE_SOURCE_DIR}/platform/linux)
  target_link_libraries(tmbserver PUBLIC tmbcore PkgConfig::SNDFILE PkgConfig::ALSA)
  if(EXISTS ${CMAKE_SOURCE_DIR}/server/main.cpp)
    add_executable(tmbasrv server/main.cpp)
    target_link_libraries(tmbasrv PRIVATE tmbserver)
  endif()
endif()

# The command; all but its main is a library, so that tests can hold recordings against renderings.
tembra_sources(tool_sources tools/*.cpp)
list(FILTER tool_sources EXCLUDE REGEX "/tools/main.cpp$")
add_library(tmbtools STATIC ${tool_sources})
target_include_directories(tmbtools PUBLIC ${CMAKE_SOURCE_DIR})
target_link_libraries(tmbtools PUBLIC tmbhal tmbplatform PkgConfig::SNDFILE PkgConfig::SAMPLERATE)
add_executable(tmbaudio tools/main.cpp)
target_link_libraries(tmbaudio PRIVATE tmbtools)
target_compile_definitions(tmbaudio PRIVATE TEMBRA_VERSION="${PROJECT_VERSION}")
add_dependencies(tmbaudio TMBAudioClient)
