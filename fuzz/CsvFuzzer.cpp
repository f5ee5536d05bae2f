#include <Zel/IO/MemoryStream.h>
#include <Zel/IO/StringStream.h>
#include <Zel/Text/CsvReader.h>
#include <Zel/Text/CsvWriter.h>
#include <Zel/Text/FormatException.h>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

// Reads the input as CSV (the first byte picks the separator, so that other dialects are reached
// too). Only FormatException may come out; records that read are written and read again and must
// come back the same.

namespace {

using Rows = std::vector<std::vector<std::string>>;

Rows readRows(Zel::IO::IStream& stream, const Zel::Text::CsvOptions& options) {
    Zel::Text::CsvReader reader(stream, options);
    Rows rows;
    std::vector<std::string> fields;
    while (reader.readRow(fields))
        rows.push_back(fields);
    return rows;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    Zel::Text::CsvOptions options;
    options.maxFieldSize = 4096;
    switch (data[0] % 4) {
    case 1:
        options.separator = ';';
        break;
    case 2:
        options.separator = '\t';
        break;
    case 3:
        options.separator = '|', options.quote = '\'';
        break;
    default:
        break;
    }
    Zel::IO::MemoryStream input(data + 1, size - 1);
    Rows rows;
    try {
        rows = readRows(input, options);
    } catch (const Zel::Text::FormatException&) {
        return 0;
    }
    Zel::IO::StringStream written;
    Zel::Text::CsvWriter writer(written, options);
    for (const auto& row : rows)
        writer.writeRow(row);
    Zel::IO::MemoryStream again(written.str().data(), written.str().size());
    if (readRows(again, options) != rows) {
        std::fprintf(stderr, "round trip differs:\n%s\n", written.str().c_str());
        std::abort();
    }
    return 0;
}
