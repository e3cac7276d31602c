// A shared module for the version tests to load, built with and without a
// version resource of its own.

#ifdef PROBE_WITH_RESOURCE
#include <dv/env/VersionResource.h>

DV_VERSION_RESOURCE(5, 6, 7, 8, 5, 6, 0, 0);
#endif

extern "C" int probeModuleAnswer() { return 42; }
