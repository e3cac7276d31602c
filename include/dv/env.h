#pragma once

// The whole public interface of dvenv2.

#include <dv/env/AppLog.h>
#include <dv/env/ConfigRecorder.h>
#include <dv/env/ConfigSerializer.h>
#include <dv/env/DataTarget.h>
#include <dv/env/Event.h>
#include <dv/env/Export.h>
#include <dv/env/OptionQueries.h>
#include <dv/env/OptionReflection.h>
#include <dv/env/OptionRegistration.h>
#include <dv/env/Options.h>
#include <dv/env/ProgramVersion.h>
#include <dv/env/Settings.h>
#include <dv/env/StampLog.h>
#include <dv/env/Unit.h>
#include <dv/env/Utf8Arguments.h>
#include <dv/env/VersionResource.h>
