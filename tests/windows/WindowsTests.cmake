# Tests of the Windows backend, run under Wine; included from tests/ on Windows.

dvenv2_add_test(WindowsBackendTest SOURCES windows/WindowsBackendTest.cpp
  LIBRARIES ole32
  PROPERTIES RESOURCE_LOCK display-focus)
dvenv2_version_resource(WindowsBackendTest FILE 2 4 6 8 PRODUCT 2 4 6 8)

if(TARGET dvenv)
  # The tool reads its own VERSIONINFO; the library is linked into it.
  add_test(NAME Tool.VersionShowsToolAndLibrary COMMAND dvenv version)
  set(dvenv2_dotted "${PROJECT_VERSION_MAJOR}\\.${PROJECT_VERSION_MINOR}\\.${PROJECT_VERSION_PATCH}")
  set_tests_properties(Tool.VersionShowsToolAndLibrary PROPERTIES PASS_REGULAR_EXPRESSION
    "^${dvenv2_dotted}\\.${DVENV2_BUILD_NUMBER}\r?\n${dvenv2_dotted} Build ${DVENV2_BUILD_NUMBER}\r?\n[0-9]+\r?\nlibdvenv2\\.a ${dvenv2_dotted}\\.${DVENV2_BUILD_NUMBER}\r?\ndialog program: none\r?\n$")

  add_test(NAME Tool.OptionsLiveInTheWindowsRegistry
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/windows/check-registry.sh ${PROJECT_SOURCE_DIR}/cmake/wine-run.sh $<TARGET_FILE:dvenv>)

  # A real crash under Wine: the log holds the dump, which dump-extract
  # writes out and lldb opens with the faulting function named.
  add_test(NAME Crash.UnderWineTheDumpNamesTheFaultingFunction
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/windows/check-crash.sh
            ${PROJECT_SOURCE_DIR}/cmake/wine-run.sh $<TARGET_FILE:dvenv> ${CMAKE_CURRENT_BINARY_DIR}/crash-check)
  set_tests_properties(Crash.UnderWineTheDumpNamesTheFaultingFunction PROPERTIES TIMEOUT 120)
endif()
