#pragma once

#include <dv/notelib/Export.h>

#include <boost/format.hpp>

#include <string>

namespace dv::notelib {

/// A message: a 32-bit identifier and a Boost.Format text whose `%1%`, `%2%`,
/// ... are filled by the arguments appended with `<<`, in order:
///
///     dv::notelib::MessageFormatStream message(0x8000007eu, "Cannot read layer %1%\ncell %2%\n");
///     message << 12 << "TOP";
///     message.toString();  // "Cannot read layer 12\ncell TOP\n"
///
/// The two top bits of the identifier are the severity (0 success,
/// 1 informational, 2 warning, 3 error); the other 30 tell messages apart.
///
/// By convention the text is organised in lines: the first is a summary, the
/// second a context, the rest details.
class DV_NOTELIB_EXPORT MessageFormatStream {
public:
    /// Parses `format` once. A format without directives comes back unchanged;
    /// "%%" stands for one "%". A format Boost.Format cannot parse (a lone "%"
    /// at its end, say) throws `std::invalid_argument` naming the format.
    MessageFormatStream(unsigned int id, std::string format);
    MessageFormatStream(const MessageFormatStream& other);
    MessageFormatStream(MessageFormatStream&& other);
    MessageFormatStream& operator=(const MessageFormatStream& other);
    MessageFormatStream& operator=(MessageFormatStream&& other);
    ~MessageFormatStream();

    /// Fills the next placeholder. A placeholder left without an argument
    /// stays empty, and an argument beyond the last placeholder is dropped.
    /// As with Boost.Format, the first argument appended after `toString`
    /// starts a new set of arguments.
    ///
    ///     MessageFormatStream(1, "%1% of %2%") << 3 << 4;  // "3 of 4"
    template <typename T>
    MessageFormatStream& operator<<(const T& argument) {
        format_ % argument;
        return *this;
    }

    /// The identifier given at construction.
    unsigned int messageId() const { return id_; }
    /// The text with its arguments filled in, as a new string at each call.
    std::string toString() const;

private:
    unsigned int id_;
    boost::format format_;
};

}  // namespace dv::notelib
