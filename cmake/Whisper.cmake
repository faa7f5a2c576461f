# The local speech engine. An installed whisper.cpp wins; without one the pinned release is
# brought with FetchContent and linked statically, so the application, the tests and the
# package carry the engine without anything of whisper.cpp in this repository.
#
# Sets TAMVEX_WHISPER_TARGET (empty when the local engine is off) and TAMVEX_PARAKEET_TARGET
# (empty when the whisper.cpp at hand has no Parakeet library).

option(TAMVEX_FETCH_WHISPER "Build the pinned whisper.cpp when no installed one is found" ON)
set(TAMVEX_WHISPER_SOURCE "" CACHE STRING
    "whisper.cpp source: a release archive (checked against its SHA-256) or an unpacked folder")
option(TAMVEX_WHISPER_VULKAN "Build whisper.cpp's Vulkan backend (needs libvulkan-dev and glslc)" OFF)

include(${CMAKE_CURRENT_LIST_DIR}/WhisperArchive.cmake)
set(TAMVEX_WHISPER_GIT "https://github.com/ggml-org/whisper.cpp.git")

set(TAMVEX_WHISPER_TARGET "")
set(TAMVEX_PARAKEET_TARGET "")

# Builds whisper.cpp in its own scope: its options, and optimised code even in a Debug or
# sanitizer build of ours (a Debug ggml is tens of times slower and the engine tests would
# crawl; its internals are not ours to sanitize).
function(tamvex_build_whisper)
  include(FetchContent)
  set(CMAKE_POLICY_DEFAULT_CMP0077 NEW) # our BUILD_SHARED_LIBS wins over its option()
  set(BUILD_SHARED_LIBS OFF)
  set(WHISPER_BUILD_TESTS OFF CACHE BOOL "" FORCE)
  set(WHISPER_BUILD_EXAMPLES OFF CACHE BOOL "" FORCE)
  set(WHISPER_BUILD_SERVER OFF CACHE BOOL "" FORCE)
  set(WHISPER_ALL_WARNINGS OFF CACHE BOOL "" FORCE)
  set(GGML_NATIVE OFF CACHE BOOL "" FORCE)
  set(GGML_VULKAN ${TAMVEX_WHISPER_VULKAN} CACHE BOOL "" FORCE)
  foreach(lang C CXX)
    set(CMAKE_${lang}_FLAGS_DEBUG "-O2 -g0")
    set(CMAKE_${lang}_FLAGS_RELWITHDEBINFO "-O2 -g0 -DNDEBUG")
  endforeach()
  set(CMAKE_POSITION_INDEPENDENT_CODE ON)
  set(CMAKE_AUTOMOC OFF)
  set(CMAKE_AUTORCC OFF)
  if(IS_DIRECTORY "${TAMVEX_WHISPER_SOURCE}")
    FetchContent_Declare(whispercpp SOURCE_DIR "${TAMVEX_WHISPER_SOURCE}")
  elseif(TAMVEX_WHISPER_SOURCE)
    tamvex_check_whisper_archive("${TAMVEX_WHISPER_SOURCE}")
    FetchContent_Declare(whispercpp URL "${TAMVEX_WHISPER_SOURCE}"
                         URL_HASH SHA256=${TAMVEX_WHISPER_ARCHIVE_SHA256} DOWNLOAD_EXTRACT_TIMESTAMP ON)
  else()
    FetchContent_Declare(whispercpp GIT_REPOSITORY ${TAMVEX_WHISPER_GIT} GIT_TAG ${TAMVEX_WHISPER_COMMIT})
  endif()
  # Out of `all` and out of `install`: only what our targets link is built, and none of
  # whisper.cpp's headers or libraries land in the package.
  FetchContent_GetProperties(whispercpp)
  if(NOT whispercpp_POPULATED)
    FetchContent_Populate(whispercpp)
    add_subdirectory(${whispercpp_SOURCE_DIR} ${whispercpp_BINARY_DIR} EXCLUDE_FROM_ALL)
  endif()
endfunction()

if(TAMVEX_WHISPER_SOURCE MATCHES "^~")
  string(REPLACE "~" "$ENV{HOME}" TAMVEX_WHISPER_SOURCE "${TAMVEX_WHISPER_SOURCE}")
endif()

find_package(whisper CONFIG QUIET)
if(whisper_FOUND)
  set(TAMVEX_WHISPER_TARGET whisper)
  if(TARGET parakeet)
    set(TAMVEX_PARAKEET_TARGET parakeet)
  endif()
  message(STATUS "Local engine: the installed whisper.cpp (${whisper_DIR})")
elseif(NOT TAMVEX_FETCH_WHISPER)
  message(STATUS "Local engine: off (no installed whisper.cpp, and TAMVEX_FETCH_WHISPER is OFF)")
else()
  set(reachable TRUE)
  if(NOT TAMVEX_WHISPER_SOURCE AND NOT FETCHCONTENT_SOURCE_DIR_WHISPERCPP)
    # A quick look before FetchContent, whose failure would stop the whole configure: a
    # machine without a network still builds everything else.
    find_package(Git QUIET)
    set(probe 1)
    if(GIT_FOUND)
      execute_process(COMMAND ${GIT_EXECUTABLE} ls-remote --exit-code ${TAMVEX_WHISPER_GIT} HEAD
                      RESULT_VARIABLE probe OUTPUT_QUIET ERROR_QUIET TIMEOUT 30)
    endif()
    if(NOT probe EQUAL 0)
      set(reachable FALSE)
      message(STATUS "Local engine: off (no installed whisper.cpp, and ${TAMVEX_WHISPER_GIT} cannot be "
                     "reached; pass -DTAMVEX_WHISPER_SOURCE=<whisper.cpp-${TAMVEX_WHISPER_VERSION}.tar.gz>)")
    endif()
  endif()
  if(reachable)
    if(TAMVEX_WHISPER_VULKAN)
      find_package(Vulkan QUIET)
      find_program(TAMVEX_GLSLC glslc)
      find_package(SPIRV-Headers CONFIG QUIET)
      if(NOT Vulkan_FOUND OR NOT TAMVEX_GLSLC OR NOT SPIRV-Headers_FOUND)
        message(FATAL_ERROR "TAMVEX_WHISPER_VULKAN needs the Vulkan headers, glslc and the SPIR-V headers "
                            "(Debian 12: apt-get install libvulkan-dev glslc spirv-headers)")
      endif()
      # The backend names VK_EXT_layer_settings, which the headers carry from 1.3.272 on; with
      # older ones (Debian 12 has 1.3.239) it fails deep in the build, so say it here.
      if(Vulkan_VERSION VERSION_LESS 1.3.272)
        message(FATAL_ERROR "TAMVEX_WHISPER_VULKAN: whisper.cpp ${TAMVEX_WHISPER_VERSION}'s Vulkan backend needs Vulkan "
                            "headers 1.3.272 or newer, and ${Vulkan_INCLUDE_DIRS} has ${Vulkan_VERSION}. Point "
                            "-DVulkan_INCLUDE_DIR at newer headers (LunarG's Vulkan SDK; Debian 13's libvulkan-dev) "
                            "or build without it.")
      endif()
    endif()
    tamvex_build_whisper()
    set(TAMVEX_WHISPER_TARGET whisper)
    set(TAMVEX_PARAKEET_TARGET parakeet)
    set(backends "CPU")
    if(TAMVEX_WHISPER_VULKAN)
      set(backends "CPU and Vulkan")
    endif()
    message(STATUS "Local engine: whisper.cpp ${TAMVEX_WHISPER_VERSION} built with Tamvex (${backends})")
  endif()
endif()
