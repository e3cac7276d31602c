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

# Real faults of every kind under Wine, each read back with lldb. Wine's
# MiniDumpWriteDump takes several seconds, so the runs under load repeat only
# DVENV2_WINE_CRASH_REPEAT times.
set(DVENV2_WINE_CRASH_REPEAT 1 CACHE STRING "Runs of each Windows crash test under load (threads faulting at once, a fault while others log)")
add_executable(FaultChild windows/FaultChild.cpp)
target_link_libraries(FaultChild PRIVATE dvenv2_objects dvenv2_warnings)
target_include_directories(FaultChild PRIVATE ${PROJECT_SOURCE_DIR}/src ${CMAKE_CURRENT_SOURCE_DIR})
if(TARGET dvenv)
  # case, exit status (the code cut to 8 bits), code, a function in the faulting thread's frames, runs
  set(dvenv2_wine_faults
    "abort-main 21 40000015 abortInNamedFunction 1"
    "abort-thread 21 40000015 abortInNamedFunction 1"
    "uncaught-thread 21 40000015 throwWithoutCatch 1"
    "invalid-parameter 23 c0000417 passInvalidParameter 1"
    "overflow-thread 253 c00000fd recurseWithoutEnd 1"
    "together-2 5 c0000005 faultTogether ${DVENV2_WINE_CRASH_REPEAT}"
    "together-8 5 c0000005 faultTogether ${DVENV2_WINE_CRASH_REPEAT}"
    "busy-log 5 c0000005 writeThroughNullWhileOthersLog ${DVENV2_WINE_CRASH_REPEAT}"
    "typo 3 none Invalid.numeric.parameter.for.option 1")
  foreach(fault IN LISTS dvenv2_wine_faults)
    separate_arguments(fault)
    list(GET fault 0 case)
    list(GET fault 4 runs)
    add_test(NAME Crash.UnderWine.${case}
      COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/windows/check-faults.sh ${PROJECT_SOURCE_DIR}/cmake/wine-run.sh
              $<TARGET_FILE:dvenv> $<TARGET_FILE:FaultChild> ${CMAKE_CURRENT_BINARY_DIR}/faults-${case} ${fault})
    math(EXPR timeout "240 * ${runs}")
    set_tests_properties(Crash.UnderWine.${case} PROPERTIES TIMEOUT ${timeout})
  endforeach()
endif()
