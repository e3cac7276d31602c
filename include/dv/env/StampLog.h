#pragma once

#include <dv/env/Export.h>

#include <iosfwd>

namespace dv::env {

/// The stamp that opens every log line: the base name of a source file and a
/// line number, in fixed-width fields.
///
/// The library writes each log line as stream, stamp, message, `std::endl`:
///
///     std::clog << dv::env::StampLog(__FILE__, __LINE__) << "Loaded " << n << std::endl;
///
/// which gives, for line 56 of `src/Event.cpp`,
/// `Event           :56     Loaded 3`.
class DV_ENV_EXPORT StampLog {
public:
    /// `file` is not copied: it must outlive the stamp (a string literal does).
    /// It must not be null.
    StampLog(const char* sourceFile, int sourceLine) : file(sourceFile), line(sourceLine) {}
    StampLog(const StampLog&) = default;
    StampLog(StampLog&&) = default;
    StampLog& operator=(const StampLog&) = default;
    StampLog& operator=(StampLog&&) = default;

    const char* file;
    int line;
};

/// Writes the stamp: the base name of `stamp.file` (directories cut at the last
/// '/' or '\\', extension cut at the last '.' within the base name) left-adjusted
/// in 16 places, ':', the line left-adjusted in 4 places, then three blanks.
/// Longer fields are written whole. The stream is left with left adjustment,
/// blank fill and decimal base.
DV_ENV_EXPORT std::ostream& operator<<(std::ostream& os, const StampLog& stamp);

/// Writes one whole line to `std::clog`: the stamp of `file` and `line`, `text`,
/// a line end and a flush. Exported under the plain name `writeLog` for callers
/// that do not use the classes:
///
///     writeLog(__FILE__, __LINE__, "Import finished");
extern "C" DV_ENV_EXPORT void writeLog(const char* file, int line, const char* text);

}  // namespace dv::env
