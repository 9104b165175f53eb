# Test bench: GoogleTest built with the cross compiler, every test program run
# by CTest under Wine in a disposable prefix of this build tree.

set(gtest_force_shared_crt OFF CACHE BOOL "" FORCE)
set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
add_subdirectory(/usr/src/googletest/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
target_compile_options(gtest PRIVATE -w)
target_compile_options(gtest_main PRIVATE -w)

set(QM_WINEPREFIX ${CMAKE_BINARY_DIR}/wineprefix)
set(QM_WINEDLLPATH ${CMAKE_SOURCE_DIR}/.cache/libwine-i386/usr/lib/i386-linux-gnu/wine)
set(QM_WINE_ENV
  "WINEPREFIX=${QM_WINEPREFIX}"
  "WINEDLLPATH=${QM_WINEDLLPATH}"
  "WINEDEBUG=-all"
  # No debugger (it hangs without a display) and no browser for the maker page.
  "WINEDLLOVERRIDES=mscoree,mshtml=;winemenubuilder.exe=d;winedbg.exe=d;winebrowser.exe=d"
  "QM_ARCH=${QM_ARCH}"
  "QM_SOURCE_DIR=${CMAKE_SOURCE_DIR}"
  "QM_BIN_DIR=${CMAKE_BINARY_DIR}/bin")

# The prefix is made once per build tree and reused by every test of a run.
add_test(NAME wineprefix_setup
         COMMAND ${CMAKE_SOURCE_DIR}/scripts/make-prefix.sh ${QM_WINEPREFIX} ${QM_ARCH})
set_tests_properties(wineprefix_setup PROPERTIES FIXTURES_SETUP wineprefix
                     ENVIRONMENT "${QM_WINE_ENV}")

# qm_add_gtest(<name> SOURCES <files...> [X64_ONLY] [LIBS <libs...>] [DEPENDS <targets...>])
# One test program, linked with the libraries under test (LIBS); CTest runs it
# under Wine. Tests of one tree share the
# prefix and run one at a time (RESOURCE_LOCK), because many of them change
# fixed registry keys and shell folders.
function(qm_add_gtest name)
  cmake_parse_arguments(T "X64_ONLY" "TIMEOUT" "SOURCES;LIBS;DEPENDS" ${ARGN})
  if(T_X64_ONLY AND NOT QM_ARCH STREQUAL "x86_64")
    return()
  endif()
  add_executable(${name} ${T_SOURCES} $<TARGET_OBJECTS:qmres>
                 ${CMAKE_SOURCE_DIR}/tests/support/test_main.cpp)
  target_link_libraries(${name} PRIVATE qmtestsupport gtest ${T_LIBS})
  target_link_options(${name} PRIVATE ${QM_LINK_FLAGS})
  if(T_DEPENDS)
    add_dependencies(${name} ${T_DEPENDS})
  endif()
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 600)
  endif()
  add_test(NAME ${name} COMMAND wine $<TARGET_FILE:${name}>)
  # A program whose every test called GTEST_SKIP ends with 77 (tests/support/test_main.cpp).
  set_tests_properties(${name} PROPERTIES
    ENVIRONMENT "${QM_WINE_ENV}" FIXTURES_REQUIRED wineprefix
    RESOURCE_LOCK wineprefix TIMEOUT ${T_TIMEOUT} SKIP_RETURN_CODE 77)
endfunction()

# qm_add_script_test(<name> <script> [args...]): a bash script that drives
# several processes (for example across a Wine restart); it gets the same
# environment as the test programs, and exits with 77 when it cannot run here.
function(qm_add_script_test name script)
  add_test(NAME ${name} COMMAND bash ${script} ${ARGN})
  set_tests_properties(${name} PROPERTIES
    ENVIRONMENT "${QM_WINE_ENV}" FIXTURES_REQUIRED wineprefix
    RESOURCE_LOCK wineprefix TIMEOUT 900 SKIP_RETURN_CODE 77)
endfunction()
