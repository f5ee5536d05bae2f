#pragma once

#include <cstddef>
#include <string>

namespace Zel::Text {

// The dialect of a CSV file (RFC 4180 by default) for CsvReader and CsvWriter.
struct CsvOptions {
    char separator = ',';
    char quote = '"';
    // The first record names the columns: CsvReader reads it up front and then requires every
    // record to have as many fields.
    bool header = false;
    // What CsvWriter ends records with; the reader takes CRLF, LF and a lone CR alike.
    std::string lineEnding = "\r\n";
    // A longer field is refused, so that a quote left open cannot swallow all memory.
    std::size_t maxFieldSize = 16 * 1024 * 1024;
};

} // namespace Zel::Text
