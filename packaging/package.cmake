# `cpack -G DEB` in the build folder makes tamvex_<version>_amd64.deb of what `install` puts in /usr.
set(CPACK_PACKAGE_NAME tamvex)
set(CPACK_PACKAGE_VENDOR "Sorvel")
set(CPACK_PACKAGE_CONTACT "Tamvex <support@sorvel.ru>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Voice dictation into any text field")
set(CPACK_PACKAGE_DESCRIPTION "Hold a key, speak, let go: Tamvex records the microphone, turns the speech into
clean punctuated text and pastes it where the cursor is. Speech is recognised in the cloud
(OpenRouter or a Sorvel account) or offline with whisper.cpp.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_GENERATOR DEB)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://sorvel.ru/tamvex")
set(CPACK_DEBIAN_PACKAGE_RELEASE ${TAMVEX_BUILD_NUMBER})
# Libraries come from the binaries; the QML modules the windows load at run time are named here.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS
    "qml6-module-qtquick, qml6-module-qtquick-window, qml6-module-qtquick-controls, qml6-module-qtquick-templates, qml6-module-qtquick-layouts, qml6-module-qtquick-shapes, qml6-module-qtqml-workerscript, libqt6svg6")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "pipewire-pulse | pulseaudio")
# The udev rule and module load take effect at once on install, without a reboot.
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/debian/postinst)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
