#include <dv/notelib/MessageFormatStream.h>

#include <stdexcept>
#include <utility>

namespace dv::notelib {

namespace {

// A message must never fail for want of an argument: reporting code runs on
// paths that are already in trouble. A format that cannot be parsed at all is
// a programming error and is told at once.
constexpr unsigned char lenient =
    boost::io::all_error_bits & ~(boost::io::too_many_args_bit | boost::io::too_few_args_bit);

}  // namespace

MessageFormatStream::MessageFormatStream(unsigned int id, std::string format) : id_(id) {
    format_.exceptions(lenient);
    try {
        format_.parse(format);
    } catch (const boost::io::format_error& error) {
        throw std::invalid_argument("notelib: message " + std::to_string(id) + " has a bad format '" + format +
                                    "': " + error.what());
    }
}

MessageFormatStream::MessageFormatStream(const MessageFormatStream& other) = default;
// boost::format has no move operations of its own; these copy it.
MessageFormatStream::MessageFormatStream(MessageFormatStream&& other) = default;
MessageFormatStream& MessageFormatStream::operator=(const MessageFormatStream& other) = default;
MessageFormatStream& MessageFormatStream::operator=(MessageFormatStream&& other) = default;
MessageFormatStream::~MessageFormatStream() = default;

std::string MessageFormatStream::toString() const { return format_.str(); }

}  // namespace dv::notelib
