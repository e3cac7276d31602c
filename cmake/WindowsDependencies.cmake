# What a Windows build links against, cross-built on Debian: FOX 1.6.57 from
# Debian's source package (scripts/build-fox-windows.sh), Debian's Boost
# headers (the same for every platform), googletest from Debian's sources.
#
# One FOX and one C++ runtime per process: every program links the library,
# FOX and the runtime statically. A DLL linked with -static carries its own
# copy of both, and a second copy of std::clog in one process escapes the
# host's redirection of the log.
set(DVENV2_FOX_WINDOWS "${PROJECT_SOURCE_DIR}/build/windows-deps/fox" CACHE PATH
  "FOX 1.6.57 for Windows, as scripts/build-fox-windows.sh installs it")
if(NOT EXISTS "${DVENV2_FOX_WINDOWS}/lib/libFOX-1.6.a")
  message(FATAL_ERROR "No FOX for Windows in ${DVENV2_FOX_WINDOWS}: run scripts/build-fox-windows.sh")
endif()
add_library(PkgConfig::FOX INTERFACE IMPORTED)
target_include_directories(PkgConfig::FOX SYSTEM INTERFACE "${DVENV2_FOX_WINDOWS}/include/fox-1.6")
target_link_libraries(PkgConfig::FOX INTERFACE "${DVENV2_FOX_WINDOWS}/lib/libFOX-1.6.a"
  comctl32 wsock32 winspool mpr gdi32 imm32)

# Debian's Boost headers, and nothing else of /usr/include.
set(dvenv2_boost_include "${PROJECT_BINARY_DIR}/boost-include")
file(MAKE_DIRECTORY "${dvenv2_boost_include}")
file(CREATE_LINK /usr/include/boost "${dvenv2_boost_include}/boost" SYMBOLIC)
add_library(Boost::headers INTERFACE IMPORTED)
target_include_directories(Boost::headers SYSTEM INTERFACE "${dvenv2_boost_include}")

enable_language(RC)

# FOX's headers take their Windows branch on WIN32, which strict C++17 leaves
# undefined; the libraries are static (see above).
add_compile_definitions(WIN32 DV_ENV_STATIC DV_NOTELIB_STATIC)
add_link_options(-static)
# lldb reads file and line of PE programs from DWARF 4, not from g++'s DWARF 5.
add_compile_options(-gdwarf-4)
