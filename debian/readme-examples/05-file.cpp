#include <dv/env/VersionResource.h>

DV_VERSION_RESOURCE(9, 1, 3, 456,   // file version
                    9, 1, 3, 456);  // product version
