// The library's own version resource, from the project's version. Compiled
// into the shared library only: the unit tests link the library's objects into
// executables that carry resources of their own.

#include <dv/env/VersionResource.h>

DV_VERSION_RESOURCE(DVENV2_VERSION_MAJOR, DVENV2_VERSION_MINOR, DVENV2_VERSION_PATCH, DVENV2_BUILD_NUMBER,
                    DVENV2_VERSION_MAJOR, DVENV2_VERSION_MINOR, DVENV2_VERSION_PATCH, DVENV2_BUILD_NUMBER);
