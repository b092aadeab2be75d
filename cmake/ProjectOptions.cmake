# Compiler settings shared by every target of this project (not by GoogleTest).
set(LM2_SANITIZERS "" CACHE STRING "Sanitizers for the native build, e.g. address;undefined or thread")

# MSVC: the static runtime, so that LogonUI needs no Visual C++ redistributable.
set(CMAKE_MSVC_RUNTIME_LIBRARY "MultiThreaded$<$<CONFIG:Debug>:Debug>")

add_library(lm2_options INTERFACE)
if(MSVC)
  target_compile_options(lm2_options INTERFACE /W4 /EHsc /utf-8 /permissive-)
else()
  target_compile_options(lm2_options INTERFACE -Wall -Wextra -Wno-unknown-pragmas)
endif()

if(WIN32)
  # UTF-16 Win32 API, Windows 10 declarations (behaviour still checks the running version).
  target_compile_definitions(lm2_options INTERFACE
    UNICODE _UNICODE WIN32_LEAN_AND_MEAN _WIN32_WINNT=0x0A00 WINVER=0x0A00 NTDDI_VERSION=0x0A000000)
  # Output next to each other so that test programs find the DLL the way LogonUI's search does.
  set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
  set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
endif()

if(LM2_SANITIZERS)
  list(JOIN LM2_SANITIZERS "," lm2_sanitizer_list)
  set(lm2_sanitizer_flags -fsanitize=${lm2_sanitizer_list} -fno-omit-frame-pointer)
  if("undefined" IN_LIST LM2_SANITIZERS)
    list(APPEND lm2_sanitizer_flags -fno-sanitize-recover=all)
  endif()
  # Applied globally so that GoogleTest and the code under test agree on the instrumented runtime.
  add_compile_options(${lm2_sanitizer_flags})
  add_link_options(${lm2_sanitizer_flags})
endif()
