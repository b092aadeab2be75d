# GoogleTest and GoogleMock from Debian's source package, built with this project's compiler (the
# mingw build cannot use a prebuilt library, and the native build needs the sanitizer flags).
set(LM2_GOOGLETEST_DIR /usr/src/googletest CACHE PATH "GoogleTest source tree")
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
set(gtest_force_shared_crt ON CACHE BOOL "" FORCE)
add_subdirectory(${LM2_GOOGLETEST_DIR} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
include(GoogleTest)
