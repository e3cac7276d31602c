#!/usr/bin/env bash
# Fails if the shared library exports anything internal, or lacks its SONAME.
set -euo pipefail
lib=$1
exported=$(nm -D --defined-only -C "$lib" | awk '{ $1=""; $2=""; print substr($0, 3) }')
bad=$(grep -E 'internal|platform::|buildOptionTables|OptionIndex|builtin[A-Z]|NameCache|loadDefaults|(int|real|string|bool)Options|(int|real|string|bool)Targets' <<<"$exported" || true)
if [ -n "$bad" ]; then
  echo "internal symbols exported:"; echo "$bad"; exit 1
fi
for name in 'dv::env::getOptionInt' 'dv::env::optionsRecorder()' 'writeLog' 'dv::env::OptionsConfigRecorder::record' 'dv::env::AppLog::redirectToFile' 'dv::env::AppLog::emailLog' \
            'dv::env::programVersion[abi:cxx11](bool)' 'dv::env::programVersionW[abi:cxx11](bool)' \
            'dv::env::programVersionNumber()' 'dv::env::DataTargetString::get' 'dv::env::DataTargetBool::metaClass' \
            'dv::env::EventLog::addLog' 'dv::env::Event::Event(dv::env::Event&&)' \
            'dv::env::listOptions()' 'dv::env::findOption' 'dv::env::assignOption' 'dv::env::isCommandName' \
            'dv::env::describe[abi:cxx11](dv::env::Assignment const&)' 'dv::env::libraryVersion()'; do
  grep -qF "$name" <<<"$exported" || { echo "missing export: $name"; exit 1; }
done
# The mode query is exported for exactly its six enumerations.
modes=$(grep -F 'dv::env::getOption<' <<<"$exported" | sort || true)
for mode in dv::edit::CellHierarchy dv::edit::EdgePolicy dv::edit::ShapeFilter dv::edit::ExtractHolesMode \
            dv::geom::HolesMode dv::geom::FillRule; do
  grep -qF "$mode dv::env::getOption<$mode>(bool)" <<<"$modes" || { echo "missing export: getOption<$mode>"; exit 1; }
done
[ "$(grep -c . <<<"$modes")" -eq 6 ] || { echo "getOption exported for other types:"; echo "$modes"; exit 1; }
# writeLog has C linkage: its symbol is the plain name.
nm -D --defined-only "$lib" | grep -qE ' T writeLog$' || { echo "writeLog is not exported with C linkage"; exit 1; }
readelf -d "$lib" | grep -q 'SONAME.*libdvenv2\.so\.[0-9]' || { echo "no versioned SONAME"; exit 1; }
# The library carries its own version resource as an ELF note.
readelf -n "$lib" | grep -q 'dvenv .*0x00000010' || { echo "no version resource note"; exit 1; }
echo "exports ok"
