# dvenv-analyze on real crashes; included from tests/. Skipped, with the
# reason, where the analyzer could not be built (no liblldb-14-dev).

# The Windows build reads a dvenv.exe crash under Wine with the analyzer of
# the plain build (a Linux program).
if(WIN32)
  set(DVENV2_LINUX_ANALYZER ${PROJECT_SOURCE_DIR}/build/default/tools/dvenv-analyze/dvenv-analyze
      CACHE FILEPATH "dvenv-analyze built for the host, which reads the Windows build's dumps")
  add_test(NAME Analyze.WindowsDumpUnderWineNamesFrameZero
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/analyze/check-windows-dump.sh
            ${PROJECT_SOURCE_DIR}/cmake/wine-run.sh $<TARGET_FILE:dvenv> ${DVENV2_LINUX_ANALYZER}
            ${CMAKE_CURRENT_BINARY_DIR}/analyze-windows)
  set_tests_properties(Analyze.WindowsDumpUnderWineNamesFrameZero PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 180)
  return()
endif()

if(NOT TARGET dvenv-analyze)
  add_test(NAME Analyze.NeedsLldb COMMAND sh -c "echo 'dvenv-analyze was not built: liblldb-14-dev or nlohmann-json3-dev is missing'; exit 77")
  set_tests_properties(Analyze.NeedsLldb PROPERTIES SKIP_RETURN_CODE 77)
  return()
endif()

find_package(nlohmann_json 3 REQUIRED)
add_executable(ReportingChild analyze/ReportingChild.cpp)
target_link_libraries(ReportingChild PRIVATE dvenv2::dvenv2 dvenv2_warnings)
dvenv2_version_resource(ReportingChild FILE 9 1 3 456 PRODUCT 9 1 3 456)
if("undefined" IN_LIST DVENV2_SANITIZE)
  target_compile_options(ReportingChild PRIVATE -fno-sanitize=null)
endif()

dvenv2_add_test(AnalyzeTest SOURCES analyze/AnalyzeTest.cpp LIBRARIES nlohmann_json::nlohmann_json
  PROPERTIES TIMEOUT 300)
add_dependencies(AnalyzeTest dvenv-analyze CrashChild ReportingChild dvenv dvenv-ask)
target_compile_definitions(AnalyzeTest PRIVATE
  ANALYZER="$<TARGET_FILE:dvenv-analyze>"
  CRASH_CHILD="$<TARGET_FILE:CrashChild>"
  REPORTING_CHILD="$<TARGET_FILE:ReportingChild>"
  DVENV_TOOL="$<TARGET_FILE:dvenv>"
  LIBRARY="$<TARGET_FILE:dvenv2>" LIBRARY_NAME="$<TARGET_SONAME_FILE_NAME:dvenv2>"
  NOTELIB="$<TARGET_FILE:notelib>" NOTELIB_NAME="$<TARGET_SONAME_FILE_NAME:notelib>"
  MAKE_MAIL="${CMAKE_CURRENT_SOURCE_DIR}/analyze/make-mail.py")
