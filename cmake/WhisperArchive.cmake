# The pinned whisper.cpp release and the check of a source archive against it. Included by
# Whisper.cmake; run on its own (cmake -DTAMVEX_WHISPER_SOURCE=FILE -P WhisperArchive.cmake) it
# checks one archive, which is how the tests prove that a wrong file stops the configure.

set(TAMVEX_WHISPER_VERSION "1.9.3")
set(TAMVEX_WHISPER_COMMIT "371b5a7561823ab2bb32142d2751e35e7534727b")
set(TAMVEX_WHISPER_ARCHIVE_SHA256 "bf00ef4a9370579de5f2f75b2174b58dc47ce1487d09a344f83b35cdcb303304")

# A wrong file stops the configure: building an unknown tree would give an engine nobody asked for.
function(tamvex_check_whisper_archive path)
  if(NOT EXISTS "${path}")
    message(FATAL_ERROR "TAMVEX_WHISPER_SOURCE: no file or folder at ${path}")
  endif()
  file(SHA256 "${path}" actual)
  if(NOT actual STREQUAL TAMVEX_WHISPER_ARCHIVE_SHA256)
    message(FATAL_ERROR "TAMVEX_WHISPER_SOURCE: ${path} has SHA-256 ${actual}, "
                        "but whisper.cpp ${TAMVEX_WHISPER_VERSION} has ${TAMVEX_WHISPER_ARCHIVE_SHA256}")
  endif()
endfunction()

if(CMAKE_SCRIPT_MODE_FILE STREQUAL CMAKE_CURRENT_LIST_FILE)
  tamvex_check_whisper_archive("${TAMVEX_WHISPER_SOURCE}")
  message(STATUS "TAMVEX_WHISPER_SOURCE: ${TAMVEX_WHISPER_SOURCE} is whisper.cpp ${TAMVEX_WHISPER_VERSION}")
endif()
