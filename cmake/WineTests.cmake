# Windows test programs. In the cross build they run under Wine: one prefix per build folder
# (build/<preset>/wine/prefix), a CTest setup fixture that boots it and keeps one persistent
# wineserver, and a cleanup fixture that ends it. Every Windows program started by CTest goes
# through scripts/wine-prefix.sh, which also makes sure the prefix is up, so test discovery and
# single test runs work without the fixture too. On Windows itself the programs run directly.
# The manifest every Windows program carries (supported-OS ids), as a resource script.
set(LM2_PROGRAM_MANIFEST_RC ${PROJECT_SOURCE_DIR}/cmake/windows-program.rc)
set(LM2_UNDER_WINE ${CMAKE_CROSSCOMPILING})

if(LM2_UNDER_WINE)
  set(LM2_WINE_HOME ${CMAKE_BINARY_DIR}/wine)
  set(LM2_WINEPREFIX ${LM2_WINE_HOME}/prefix)
  set(LM2_WINE_SCRIPT ${PROJECT_SOURCE_DIR}/scripts/wine-prefix.sh)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${LM2_WINE_SCRIPT} run ${LM2_WINEPREFIX})

  add_test(NAME wine.prefix.start COMMAND ${LM2_WINE_SCRIPT} start ${LM2_WINEPREFIX})
  set_tests_properties(wine.prefix.start PROPERTIES FIXTURES_SETUP wine)
  add_test(NAME wine.prefix.stop COMMAND ${LM2_WINE_SCRIPT} stop ${LM2_WINEPREFIX})
  set_tests_properties(wine.prefix.stop PROPERTIES FIXTURES_CLEANUP wine)

  # A further prefix PREFIX with its own server (its home beside it holds its registry files and
  # desktop anchor): fixture NAME, tests wine.NAME.start and wine.NAME.stop.
  macro(lm2_wine_prefix_fixture name prefix)
    add_test(NAME wine.${name}.start COMMAND ${LM2_WINE_SCRIPT} start ${prefix})
    set_tests_properties(wine.${name}.start PROPERTIES FIXTURES_SETUP ${name})
    add_test(NAME wine.${name}.stop COMMAND ${LM2_WINE_SCRIPT} stop ${prefix})
    set_tests_properties(wine.${name}.stop PROPERTIES FIXTURES_CLEANUP ${name})
  endmacro()

  # The end-to-end flows have a prefix (and a server, a service double, a registry) of their own,
  # fixture "wine-flows": they run one at a time there while the unit tests that change the shared
  # state of the first prefix run one at a time beside them.
  set(LM2_FLOWS_WINE_HOME ${CMAKE_BINARY_DIR}/wine-flows)
  set(LM2_FLOWS_WINEPREFIX ${LM2_FLOWS_WINE_HOME}/prefix)
  lm2_wine_prefix_fixture(wine-flows ${LM2_FLOWS_WINEPREFIX})

  # The package tests install, upgrade and remove the product in a prefix of their own (fixture
  # "wine-installer"), so that nothing they leave or remove touches the other tests.
  set(LM2_INSTALLER_WINE_HOME ${CMAKE_BINARY_DIR}/wine-installer)
  set(LM2_INSTALLER_WINEPREFIX ${LM2_INSTALLER_WINE_HOME}/prefix)
  lm2_wine_prefix_fixture(wine-installer ${LM2_INSTALLER_WINEPREFIX})
endif()

# lm2_add_wine_gtest(NAME SOURCES … [LIBRARIES …] [WINDOWS_VERSIONS vista win7 win81 win10 …]
#                    [GERMAN] [RESOURCE_LOCK lock] [FIXTURE name])
# RESOURCE_LOCK takes one name: a list would be flattened into the discovered tests' properties.
# Builds a GoogleTest program for Windows and registers each of its tests as one CTest entry.
# With WINDOWS_VERSIONS the same tests are linked once per version under the program name
# NAME_<version>.exe; Wine reports that version to the program (AppDefaults), and the program finds
# the expected version in its own name (test::expectedWindows). (On Windows itself the version
# cannot be chosen: one program is built and its version-bound tests skip.) GERMAN adds a run
# NAME_<last version>_de.exe with a German user interface (LC_ALL=de_DE.UTF-8).
function(lm2_add_wine_gtest name)
  cmake_parse_arguments(ARG "GERMAN" "RESOURCE_LOCK;FIXTURE" "SOURCES;LIBRARIES;WINDOWS_VERSIONS" ${ARGN})
  add_library(${name}_objects OBJECT ${ARG_SOURCES})
  target_link_libraries(${name}_objects PUBLIC ${ARG_LIBRARIES} GTest::gmock lm2_options)

  set(variants "")
  set(last_version "")
  if(ARG_WINDOWS_VERSIONS AND LM2_UNDER_WINE)
    foreach(version IN LISTS ARG_WINDOWS_VERSIONS)
      list(APPEND variants "${name}_${version}|${version}|")
      set(last_version ${version})
    endforeach()
  else()
    list(APPEND variants "${name}||")
  endif()
  if(ARG_GERMAN AND LM2_UNDER_WINE)
    list(APPEND variants "${name}_${last_version}_de|${last_version}|de")
  endif()

  foreach(variant IN LISTS variants)
    string(REPLACE "|" ";" parts "${variant}")
    list(GET parts 0 exe)
    list(GET parts 1 version)
    list(GET parts 2 language)
    add_executable(${exe} ${LM2_PROGRAM_MANIFEST_RC})
    target_include_directories(${exe} PRIVATE ${PROJECT_SOURCE_DIR}/tests/common ${PROJECT_SOURCE_DIR}/cmake)
    target_link_libraries(${exe} PRIVATE ${name}_objects GTest::gmock_main)
    if(MSVC)
      target_link_options(${exe} PRIVATE /MANIFEST:NO)  # the .rc carries the manifest
    endif()
    set(props LABELS windows)
    if(LM2_UNDER_WINE)
      # A fixture of its own (one name only, as for the lock) must require "wine" itself.
      if(ARG_FIXTURE)
        list(APPEND props FIXTURES_REQUIRED ${ARG_FIXTURE})
      else()
        list(APPEND props FIXTURES_REQUIRED wine)
      endif()
    endif()
    if(ARG_RESOURCE_LOCK)
      list(LENGTH ARG_RESOURCE_LOCK lock_count)
      if(lock_count GREATER 1)
        message(FATAL_ERROR "${name}: give one RESOURCE_LOCK name")
      endif()
      list(APPEND props RESOURCE_LOCK ${ARG_RESOURCE_LOCK})
    endif()
    # One variable at most: a list would be flattened into the discovered tests' properties.
    set(prefix "")
    if(version)
      set_property(GLOBAL APPEND PROPERTY LM2_WINE_APPDEFAULTS "${exe}.exe|${version}")
      set(prefix "${version}.")
    endif()
    if(language)
      list(APPEND props ENVIRONMENT LC_ALL=de_DE.UTF-8)
      set(prefix "${language}.${prefix}")
    endif()
    gtest_discover_tests(${exe}
      DISCOVERY_MODE PRE_TEST
      DISCOVERY_TIMEOUT 60
      TEST_PREFIX "${prefix}"
      PROPERTIES ${props})
  endforeach()
endfunction()

# lm2_add_wine_program_test(NAME COMMAND program args… [PASS_REGEX r] [FAIL_REGEX r] [ENVIRONMENT e]
#                           [RESOURCE_LOCK lock])
# A CTest entry that runs one Windows program under Wine and judges its output.
function(lm2_add_wine_program_test name)
  cmake_parse_arguments(ARG "" "PASS_REGEX;FAIL_REGEX;RESOURCE_LOCK" "COMMAND;ENVIRONMENT" ${ARGN})
  add_test(NAME ${name} COMMAND ${ARG_COMMAND})
  set_tests_properties(${name} PROPERTIES LABELS windows)
  if(LM2_UNDER_WINE)
    set_tests_properties(${name} PROPERTIES FIXTURES_REQUIRED wine)
  endif()
  foreach(prop PASS_REGEX FAIL_REGEX RESOURCE_LOCK)
    if(ARG_${prop})
      string(REPLACE "_REGEX" "_REGULAR_EXPRESSION" cprop ${prop})
      set_tests_properties(${name} PROPERTIES ${cprop} "${ARG_${prop}}")
    endif()
  endforeach()
  if(ARG_ENVIRONMENT)
    set_tests_properties(${name} PROPERTIES ENVIRONMENT "${ARG_ENVIRONMENT}")
  endif()
endfunction()

# Writes the registry files that scripts/wine-prefix.sh imports into the prefix.
function(lm2_write_wine_registry_files)
  if(NOT LM2_UNDER_WINE)
    return()
  endif()
  get_property(entries GLOBAL PROPERTY LM2_WINE_APPDEFAULTS)
  set(text "REGEDIT4\n")
  foreach(entry IN LISTS entries)
    string(REPLACE "|" ";" parts "${entry}")
    list(GET parts 0 exe)
    list(GET parts 1 version)
    string(APPEND text "\n[HKEY_CURRENT_USER\\Software\\Wine\\AppDefaults\\${exe}]\n\"Version\"=\"${version}\"\n")
  endforeach()
  # Only rewritten when the content changes, so the prefix is not re-imported on every configure.
  foreach(home ${LM2_WINE_HOME} ${LM2_FLOWS_WINE_HOME} ${LM2_INSTALLER_WINE_HOME})
    file(MAKE_DIRECTORY ${home})
    file(CONFIGURE OUTPUT ${home}/appdefaults.reg CONTENT "${text}" @ONLY)
  endforeach()
endfunction()
