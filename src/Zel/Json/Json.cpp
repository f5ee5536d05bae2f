#include <Zel/Json/Detail/Reader.h>
#include <Zel/Json/Detail/Writer.h>
#include <Zel/Json/Json.h>
#include <Zel/Json/ParserException.h>
#include <cstdio>

namespace Zel {

std::string Variant::toJson() const {
    // Each thread keeps a writer: a small value is then written without growing a fresh buffer and
    // copied out at its exact size; a big one takes the buffer with it rather than being copied.
    thread_local Json::Detail::Writer writer;
    writer.reset();
    writer.write(*this);
    const std::string_view text = writer.written();
    if (text.size() > 64 * 1024) return writer.take();
    return std::string(text);
}

namespace Json {

const std::string _encodedNull = "null";
const std::string _encodedTrue = "true";
const std::string _encodedFalse = "false";
const std::string _encodedEmptyString = "\"\"";

Variant parse(std::string_view text) {
    thread_local Detail::Reader::Scratch scratch;
    return Detail::Reader(text, scratch).parse();
}

Variant parse(const std::string& text) {
    return parse(std::string_view(text));
}

std::string _encodeString(std::string_view text) {
    Detail::Writer writer;
    writer.writeString(text);
    return writer.take();
}

namespace {

[[noreturn]] void throwUndecodable(const std::string& text, char character) {
    throw ParserException("Json string \"" + text + "\" can not be decoded. | error=Invalid character '" +
                          character);
}

} // namespace

std::string decodeJsonString(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c != '\\') {
            out += c;
            continue;
        }
        // A backslash at the very end has no escape letter: report the backslash itself.
        if (++i == text.size()) throwUndecodable(text, '\\');
        if (text[i] != 'u') {
            if (!Detail::Reader::appendSimpleEscape(out, text[i])) throwUndecodable(text, text[i]);
            continue;
        }
        unsigned code = 0;
        for (int digit = 0; digit < 4; ++digit) {
            if (++i == text.size()) throwUndecodable(text, 'u');
            const int value = Detail::Reader::hexValue(text[i]);
            if (value < 0) throwUndecodable(text, text[i]);
            code = code << 4 | static_cast<unsigned>(value);
        }
        Detail::Reader::appendUtf8(out, code);
    }
    return out;
}

std::string encode(Date date) {
    if (date.isNull()) return _encodedNull;
    char text[32];
    const int length = std::snprintf(text, sizeof text, "\"%d%c%02d%c%02d\"", date.year(), '-', date.month(),
                                     '-', date.day());
    return std::string(text, static_cast<std::size_t>(length));
}

std::string encode(DateTime dateTime) {
    if (dateTime.isNull()) return _encodedNull;
    return dateTime.format("\"Y-M-D H:m:S\"");
}

} // namespace Json
} // namespace Zel
