#include "MailMessage.h"

#include "CrashLog.h"
#include "TextDecoding.h"

#include <algorithm>
#include <cctype>
#include <map>

namespace dvanalyze {

namespace {

std::string lowerCase(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front())))
        text.remove_prefix(1);
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back())))
        text.remove_suffix(1);
    return text;
}

// One line of `text` at `start`, without its line end; `next` is where the
// following line begins.
std::string_view lineAt(std::string_view text, std::size_t start, std::size_t& next) {
    std::size_t end = text.find('\n', start);
    next = end == std::string_view::npos ? text.size() : end + 1;
    if (end == std::string_view::npos)
        end = text.size();
    std::string_view line = text.substr(start, end - start);
    if (!line.empty() && line.back() == '\r')
        line.remove_suffix(1);
    return line;
}

bool isHeaderLine(std::string_view line) {
    const std::size_t colon = line.find(':');
    if (colon == 0 || colon == std::string_view::npos)
        return false;
    return std::all_of(line.begin(), line.begin() + static_cast<std::ptrdiff_t>(colon),
                       [](unsigned char c) { return c > 32 && c < 127; });
}

// A header value's main part and its parameters (names lower-case), with
// RFC 2231's "name*" and "name*0*", "name*1*" ... put together.
struct HeaderValue {
    std::string value;
    std::map<std::string, std::string> parameters;
};

std::string percentDecoded(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && std::isxdigit(static_cast<unsigned char>(text[i + 1])) &&
            std::isxdigit(static_cast<unsigned char>(text[i + 2]))) {
            out += static_cast<char>(std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16));
            i += 2;
        } else {
            out += text[i];
        }
    }
    return out;
}

HeaderValue parseHeaderValue(std::string_view text) {
    HeaderValue result;
    std::size_t at = text.find(';');
    result.value = lowerCase(trimmed(text.substr(0, at)));
    std::map<std::string, std::string> continued;
    while (at != std::string_view::npos && at < text.size()) {
        ++at;
        const std::size_t equals = text.find('=', at);
        if (equals == std::string_view::npos)
            break;
        const std::string name = lowerCase(trimmed(text.substr(at, equals - at)));
        std::size_t valueStart = equals + 1;
        while (valueStart < text.size() && std::isspace(static_cast<unsigned char>(text[valueStart])))
            ++valueStart;
        std::string value;
        if (valueStart < text.size() && text[valueStart] == '"') {
            std::size_t i = valueStart + 1;
            for (; i < text.size() && text[i] != '"'; ++i) {
                if (text[i] == '\\' && i + 1 < text.size())
                    ++i;
                value += text[i];
            }
            at = text.find(';', i);
        } else {
            at = text.find(';', valueStart);
            value = std::string(trimmed(text.substr(valueStart, at == std::string_view::npos ? std::string_view::npos : at - valueStart)));
        }
        if (!name.empty() && name.back() == '*') {  // charset'language'percent-encoded
            std::string_view encoded(value);
            const std::size_t quote = encoded.find('\'');
            const std::size_t second = quote == std::string_view::npos ? std::string_view::npos : encoded.find('\'', quote + 1);
            if (second != std::string_view::npos)
                encoded.remove_prefix(second + 1);
            value = percentDecoded(encoded);
            const std::string base = name.substr(0, name.size() - 1);
            (base.find('*') == std::string::npos ? result.parameters[base] : continued[base]) = value;
        } else if (name.find('*') != std::string::npos) {
            continued[name] = value;
        } else {
            result.parameters[name] = value;
        }
    }
    // Sections "name*0", "name*1", ... in order (at most ten are expected).
    for (const auto& [section, value] : continued) {
        const std::string base = section.substr(0, section.find('*'));
        if (!result.parameters.count(base) || section.substr(section.find('*')) != "*0")
            result.parameters[base] += value;
        else
            result.parameters[base] = value;
    }
    return result;
}

class MailReader {
public:
    MailReader(std::string_view whole, const std::string& where, std::string& errorText)
        : mail(whole), name(where), error(errorText) {}

    // Reads the entity (headers, blank line, body) in `text`; false on a
    // damaged part.
    bool entity(std::string_view text) {
        std::map<std::string, std::string> headers;
        std::size_t at = 0;
        std::string current;
        while (at < text.size()) {
            std::size_t next;
            const std::string_view line = lineAt(text, at, next);
            if (line.empty()) {
                at = next;
                break;
            }
            if ((line[0] == ' ' || line[0] == '\t') && !current.empty()) {
                headers[current] += " " + std::string(trimmed(line));
            } else if (isHeaderLine(line)) {
                const std::size_t colon = line.find(':');
                current = lowerCase(trimmed(line.substr(0, colon)));
                headers[current] = std::string(trimmed(line.substr(colon + 1)));
            } else {
                break;  // no headers: a body alone
            }
            at = next;
        }
        const std::string_view body = text.substr(std::min(at, text.size()));
        const HeaderValue type = parseHeaderValue(headers.count("content-type") ? headers["content-type"] : "text/plain");
        const HeaderValue disposition = parseHeaderValue(headers["content-disposition"]);

        if (type.value.rfind("multipart/", 0) == 0 && type.parameters.count("boundary"))
            return multipart(body, type.parameters.at("boundary"));
        if (type.value == "message/rfc822")
            return entity(body);

        std::string partName = disposition.parameters.count("filename") ? disposition.parameters.at("filename")
                               : type.parameters.count("name")          ? type.parameters.at("name")
                                                                        : "(unnamed)";
        const std::string encoding = lowerCase(trimmed(headers["content-transfer-encoding"]));
        std::string decoded;
        std::size_t badLine = 0;
        std::optional<std::string> result;
        const char* encodingName = nullptr;
        if (encoding == "base64") {
            result = decodeBase64Lines(body, badLine);
            encodingName = "Base64";
        } else if (encoding == "quoted-printable") {
            result = decodeQuotedPrintable(body, badLine);
            encodingName = "quoted-printable";
        } else {
            result = std::string(body);
        }
        if (!result) {
            error = name + ":" + std::to_string(lineOf(body) + badLine) + ": the part \"" + partName + "\" is not valid " +
                    encodingName + " there";
            return false;
        }
        if (looksLikeLog(*result))
            logs.push_back({std::move(partName), std::move(*result)});
        return true;
    }

    std::vector<MailAttachment> logs;

private:
    bool multipart(std::string_view body, const std::string& boundary) {
        const std::string delimiter = "--" + boundary;
        std::size_t at = 0;
        std::size_t partStart = std::string_view::npos;
        while (at < body.size()) {
            std::size_t next;
            const std::string_view line = lineAt(body, at, next);
            if (line.substr(0, delimiter.size()) == delimiter) {
                const bool closing = line.substr(delimiter.size(), 2) == "--";
                if (partStart != std::string_view::npos) {
                    // The line end before a delimiter belongs to the delimiter.
                    std::size_t partEnd = at;
                    if (partEnd > partStart && body[partEnd - 1] == '\n')
                        --partEnd;
                    if (partEnd > partStart && body[partEnd - 1] == '\r')
                        --partEnd;
                    if (!entity(body.substr(partStart, partEnd - partStart)))
                        return false;
                }
                if (closing)
                    return true;
                partStart = next;
            }
            at = next;
        }
        // No closing delimiter: the last part runs to the end.
        return partStart == std::string_view::npos || entity(body.substr(partStart));
    }

    // The line of the mail (from 1) at which `part` begins.
    std::size_t lineOf(std::string_view part) const {
        const auto offset = static_cast<std::size_t>(part.data() - mail.data());
        return 1 + static_cast<std::size_t>(std::count(mail.begin(), mail.begin() + static_cast<std::ptrdiff_t>(offset), '\n'));
    }

    std::string_view mail;
    const std::string& name;
    std::string& error;
};

}  // namespace

bool looksLikeMail(std::string_view text) {
    std::size_t next;
    std::string_view line = lineAt(text, 0, next);
    if (line.rfind("From ", 0) == 0)
        return true;  // an mbox
    bool mime = false;
    for (std::size_t at = 0; at < text.size();) {
        line = lineAt(text, at, next);
        if (line.empty())
            break;
        if (line[0] != ' ' && line[0] != '\t') {
            if (!isHeaderLine(line))
                return false;
            const std::string field = lowerCase(line.substr(0, line.find(':')));
            mime = mime || field == "mime-version" || field == "content-type";
        }
        at = next;
    }
    return mime;
}

std::optional<std::vector<MailAttachment>> logsInMail(std::string_view mail, const std::string& where, std::string& error) {
    MailReader reader(mail, where, error);
    // An mbox: messages begin with a "From " line after a blank line.
    std::size_t start = 0;
    std::size_t at = 0;
    bool blankBefore = true;
    while (at <= mail.size()) {
        std::size_t next;
        const std::string_view line = at < mail.size() ? lineAt(mail, at, next) : std::string_view();
        const bool boundary = at == mail.size() || (blankBefore && line.rfind("From ", 0) == 0 && at > 0);
        if (boundary) {
            std::string_view message = mail.substr(start, at - start);
            if (message.rfind("From ", 0) == 0) {
                lineAt(message, 0, next);
                message.remove_prefix(next);
            }
            if (!trimmed(message).empty() && !reader.entity(message))
                return std::nullopt;
            start = at;
            if (at == mail.size())
                break;
        }
        lineAt(mail, at, next);
        blankBefore = line.empty();
        at = next;
    }
    return std::move(reader.logs);
}

}  // namespace dvanalyze
