# The one QML module "Tamvex", built into tamvex_core.
#
# Adding to it: drop a .qml file into Hud/, Main/, Welcome/, Account/ or Common/ (or an
# .svg into icons/) and re-run CMake: the globs below pick it up. Every file is a type of
# the one module, so type names must be unique across folders; QML imports it with
# `import Tamvex`. A QML singleton is listed in TAMVEX_QML_SINGLETONS. C++ types join by
# QML_ELEMENT / QML_SINGLETON in any header of tamvex_core. Windows are loaded from
# qrc:/Tamvex/<folder>/<File>.qml after tamvex::registerQmlModule().
set(TAMVEX_QML_DIR ${CMAKE_CURRENT_SOURCE_DIR}/shell/qml)
file(GLOB_RECURSE TAMVEX_QML_FILES CONFIGURE_DEPENDS RELATIVE ${CMAKE_CURRENT_SOURCE_DIR} ${TAMVEX_QML_DIR}/*.qml)
file(GLOB_RECURSE TAMVEX_QML_RESOURCES CONFIGURE_DEPENDS RELATIVE ${CMAKE_CURRENT_SOURCE_DIR} ${TAMVEX_QML_DIR}/icons/*.svg)
set(TAMVEX_QML_SINGLETONS shell/qml/Common/Theme.qml)

set_source_files_properties(${TAMVEX_QML_SINGLETONS} PROPERTIES QT_QML_SINGLETON_TYPE TRUE)
# Paths inside the module drop the source prefix: qrc:/Tamvex/Hud/HudWindow.qml.
foreach(file ${TAMVEX_QML_FILES} ${TAMVEX_QML_RESOURCES})
  string(REPLACE "shell/qml/" "" alias ${file})
  set_source_files_properties(${file} PROPERTIES QT_RESOURCE_ALIAS ${alias})
endforeach()

qt_add_qml_module(tamvex_core
  URI Tamvex
  VERSION 1.0
  RESOURCE_PREFIX /
  # Under a folder named after the URI, so that qmllint finds the module's own qmldir.
  OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/Tamvex
  NO_PLUGIN
  QML_FILES ${TAMVEX_QML_FILES}
  RESOURCES ${TAMVEX_QML_RESOURCES})

# The generated type registration includes each QML_ELEMENT header by its bare name.
file(GLOB TAMVEX_SHELL_DIRS LIST_DIRECTORIES true ${CMAKE_CURRENT_SOURCE_DIR}/shell/*)
list(FILTER TAMVEX_SHELL_DIRS EXCLUDE REGEX "/qml$")
foreach(dir ${CMAKE_CURRENT_SOURCE_DIR}/shell ${TAMVEX_SHELL_DIRS} ${CMAKE_CURRENT_SOURCE_DIR}/KeyboardShortcuts)
  if(IS_DIRECTORY ${dir})
    target_include_directories(tamvex_core PRIVATE ${dir})
  endif()
endforeach()
