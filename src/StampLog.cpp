#include <dv/env/StampLog.h>

#include <cstring>
#include <iomanip>
#include <iostream>
#include <string_view>

namespace dv::env {

namespace {

std::string_view baseName(const char* path) {
    const std::string_view text(path);
    const std::size_t slash = text.find_last_of("/\\");
    const std::size_t start = slash == std::string_view::npos ? 0 : slash + 1;
    // The last dot of the whole text counts only if it lies in the base name,
    // so "dir.d/name" keeps "name" whole.
    const std::size_t dot = text.rfind('.');
    const std::size_t end = dot != std::string_view::npos && dot >= start ? dot : text.size();
    return text.substr(start, end - start);
}

}  // namespace

std::ostream& operator<<(std::ostream& os, const StampLog& stamp) {
    os.setf(std::ios::left, std::ios::adjustfield);
    os.setf(std::ios::dec, std::ios::basefield);
    os.fill(' ');
    os << std::setw(16) << baseName(stamp.file) << ':' << std::setw(4) << stamp.line << "   ";
    return os;
}

extern "C" void writeLog(const char* file, int line, const char* text) {
    std::clog << StampLog(file, line) << text << std::endl;
}

}  // namespace dv::env
