#include <dv/env.h>
#include <fx.h>
#include <iostream>
#include <dv/env/OptionQueries.h>
#include <dv/env/OptionRegistration.h>
void example() {

auto arcs = dv::env::getResolution(true);            // {length in picometres, stepCount}
auto fill = dv::env::getOption<dv::geom::FillRule>(true);
std::int64_t width = dv::env::dbUnitsFromOptionInt("ToolPolyWidthValue", "ToolPolyWidthUnits", true);

dv::env::registerOptionUnits("MyToolUnits", dv::Unit::Micrometer, "", true);
dv::env::registerOptionInt("MyToolPasses", 3, "", true);   // readable and settable by name from now on
}
