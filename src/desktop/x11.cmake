# X11 fallbacks of the desktop input and output: XTest for the paste chord, XInput2 raw
# key events for the hotkey, the focused window's WM_CLASS for the terminal paste chord, and
# xcb for fresh server times on clipboard claims.
find_package(X11)
if(X11_FOUND AND X11_Xtst_FOUND AND X11_Xi_FOUND AND X11_xcb_FOUND)
  target_link_libraries(tamvex_core PRIVATE X11::X11 X11::Xtst X11::Xi X11::xcb)
  target_compile_definitions(tamvex_core PRIVATE TAMVEX_HAVE_X11=1)
else()
  message(STATUS "X11, XTest, XInput2 or xcb not found: the X11 fallbacks are not built")
endif()
