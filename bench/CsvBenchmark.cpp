// Reads a CSV file of a few MB with Zel::Text::CsvReader and with the reader people write by hand
// (std::getline over a string stream, a character loop for the quotes), side by side in one run,
// and prints Zel's throughput relative to it. Both produce the same records; the run checks that.

#include "CapturingReporter.h"

#include <Zel/IO/MemoryStream.h>
#include <Zel/IO/StringStream.h>
#include <Zel/Text/CsvReader.h>
#include <Zel/Text/CsvWriter.h>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

// Order lines as an old system exports them: numbers, names, amounts, and every tenth comment
// quoted with a separator, doubled quotes or a line break inside.
const std::string& csvText() {
    static const std::string text = [] {
        Zel::IO::StringStream out;
        Zel::Text::CsvWriter writer(out);
        writer.writeRow({"id", "customer", "city", "amount", "date", "comment"});
        for (int i = 0;
             writer.writeRow(
                 {std::to_string(i), "Customer " + std::to_string(i * 7919 % 100000),
                  i % 3 ? "Berlin" : "Zürich", std::to_string(i % 9973) + "." + std::to_string(i % 100),
                  "2024-0" + std::to_string(i % 9 + 1) + "-1" + std::to_string(i % 10),
                  i % 10 ? "regular order, nothing special" : "said \"deliver\",\nthen \"pay later\""}),
                 out.str().size() < 4 * 1024 * 1024;
             ++i) {
        }
        return out.str();
    }();
    return text;
}

struct Tally {
    std::size_t rows = 0;
    std::size_t bytes = 0;
};

Tally readZel(const std::string& text) {
    Zel::IO::MemoryStream stream(text);
    Zel::Text::CsvReader reader(stream);
    std::vector<std::string> fields;
    Tally tally;
    while (reader.readRow(fields)) {
        ++tally.rows;
        for (const std::string& field : fields)
            tally.bytes += field.size();
    }
    return tally;
}

// The usual hand-written reader: a line at a time, a flag for "inside quotes", more lines while a
// quote is open.
Tally readByHand(const std::string& text) {
    std::istringstream in(text);
    std::string line;
    std::vector<std::string> fields;
    Tally tally;
    while (std::getline(in, line)) {
        fields.clear();
        std::string field;
        bool quoted = false;
        for (std::size_t i = 0;; ++i) {
            if (i == line.size()) {
                if (quoted && std::getline(in, line)) {
                    field += '\n';
                    i = static_cast<std::size_t>(-1);
                    continue;
                }
                break;
            }
            const char c = line[i];
            if (quoted) {
                if (c == '"') {
                    if (i + 1 < line.size() && line[i + 1] == '"') {
                        field += '"';
                        ++i;
                    } else {
                        quoted = false;
                    }
                } else {
                    field += c;
                }
            } else if (c == '"') {
                quoted = true;
            } else if (c == ',') {
                fields.push_back(std::move(field));
                field.clear();
            } else if (c != '\r') {
                field += c;
            }
        }
        fields.push_back(std::move(field));
        ++tally.rows;
        for (const std::string& value : fields)
            tally.bytes += value.size();
    }
    return tally;
}

template <Tally (*read)(const std::string&)>
void run(benchmark::State& state) {
    const std::string& text = csvText();
    Tally tally;
    for (auto _ : state) {
        tally = read(text);
        benchmark::DoNotOptimize(tally);
    }
    state.counters["rows"] = static_cast<double>(tally.rows);
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void registerBenchmarks() {
    const Tally zel = readZel(csvText());
    const Tally hand = readByHand(csvText());
    if (zel.rows != hand.rows || zel.bytes != hand.bytes)
        throw std::runtime_error("the readers disagree on the records");
    benchmark::RegisterBenchmark("Read/orders/Zel", run<readZel>)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("Read/orders/by-hand", run<readByHand>)->Unit(benchmark::kMillisecond);
}

void printRatios(const Zel::Bench::CapturingReporter& reporter) {
    constexpr double mebibyte = 1024.0 * 1024.0;
    const auto* zel = reporter.find("Read/orders/Zel");
    const auto* hand = reporter.find("Read/orders/by-hand");
    if (!zel || !hand) return;
    std::printf("\nZel::Text::CsvReader relative to the hand-written reader (above 1 means Zel is faster):\n"
                "Read orders: Zel/by-hand = %s  (%.1f vs %.1f MiB/s)\n",
                Zel::Bench::formatRatio(zel->bytesPerSecond, hand->bytesPerSecond).c_str(),
                zel->bytesPerSecond / mebibyte, hand->bytesPerSecond / mebibyte);
}

} // namespace

int main(int argc, char** argv) {
    return Zel::Bench::runBenchmarks(argc, argv, "zel-bench-csv", registerBenchmarks, printRatios);
}
