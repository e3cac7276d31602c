#include <dv/env.h>
#include <fx.h>
#include <iostream>
#include <dv/env.h>
#include <dv/notelib/MessageFormatStream.h>
void example() {

dv::env::EventLog log;
for (const char* cell : {"ALU", "FPU", "ALU"})
    log.addLog(dv::notelib::MessageFormatStream(0x8000007eu, "Layer %1% has an open polygon\nin cell %2%\n")
               << 12 << cell);
log.entryCount();       // 1
log.entries()[0]->contexts();  // {"in cell ALU", "in cell FPU"}
log.highestSeverity();  // dv::env::Event::Severity::Warning
}
