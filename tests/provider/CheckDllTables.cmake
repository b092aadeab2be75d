# Checks the export and import tables of the provider DLL:
#   cmake -DOBJDUMP=… -DDLL=… -P CheckDllTables.cmake
# LogonUI needs exactly DllGetClassObject and DllCanUnloadNow; and the DLL must not import any
# runtime that a Windows installation does not have (libstdc++, libgcc, libwinpthread, …).
cmake_minimum_required(VERSION 3.25)
execute_process(COMMAND ${OBJDUMP} -p ${DLL} OUTPUT_VARIABLE dump RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "objdump failed on ${DLL}")
endif()

string(FIND "${dump}" "[Ordinal/Name Pointer] Table" start)
if(start EQUAL -1)
  message(FATAL_ERROR "no export name table in ${DLL}")
endif()
string(SUBSTRING "${dump}" ${start} -1 names)
string(FIND "${names}" "\n\n" end)  # the name table ends at the first empty line
string(SUBSTRING "${names}" 0 ${end} names)
string(REGEX MATCHALL "\\[ *[0-9]+\\] [A-Za-z_][A-Za-z0-9_@]*" entries "${names}")
set(exports "")
foreach(entry IN LISTS entries)
  string(REGEX REPLACE "^\\[ *[0-9]+\\] " "" name "${entry}")
  list(APPEND exports ${name})
endforeach()
list(SORT exports)
if(NOT exports STREQUAL "DllCanUnloadNow;DllGetClassObject")
  message(FATAL_ERROR "exports are '${exports}', expected exactly DllCanUnloadNow and DllGetClassObject")
endif()

string(REGEX MATCHALL "DLL Name: [^\n]+" imports "${dump}")
set(allowed advapi32 kernel32 msvcrt user32 gdi32 ole32 oleaut32 shlwapi shell32 secur32 sspicli
            credui crypt32 wintrust wldap32 userenv netapi32 rpcrt4 ntdll bcrypt ws2_32)
foreach(import IN LISTS imports)
  string(REPLACE "DLL Name: " "" dll "${import}")
  string(STRIP "${dll}" dll)
  string(TOLOWER "${dll}" lower)
  string(REGEX REPLACE "\\.dll$" "" base "${lower}")
  if(NOT base IN_LIST allowed AND NOT base MATCHES "^api-ms-win-")
    message(FATAL_ERROR "${DLL} imports ${dll}, which is not part of Windows")
  endif()
  message(STATUS "imports ${dll}")
endforeach()
message(STATUS "exports ${exports}")
