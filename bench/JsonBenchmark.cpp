// Parses real-world JSON documents into a tree and writes the tree back, with Zel and with the
// widely used C++ JSON libraries side by side in one run, then prints Zel's throughput relative to
// each of them.
//
// Every rate is the size of the input document divided by the time taken, for writing too: the
// libraries write different amounts of text for the same tree (key order, number formatting), and
// dividing by the same byte count makes the MB/s figures inverse times that compare directly.

#include "CapturingReporter.h"

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Parser.h>
#include <Poco/JSON/Stringifier.h>
#include <Zel/Json/Json.h>
#include <Zel/Variant.h>
#include <benchmark/benchmark.h>
#include <boost/json.hpp>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iostream>
#include <nlohmann/json.hpp>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <simdjson.h>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#ifndef ZEL_DATA_DIR
#error "ZEL_DATA_DIR must name the directory that holds json/"
#endif

namespace {

const std::vector<std::string> documents = {"twitter", "citm_catalog", "canada", "gsoc-2018"};
const std::vector<std::string> peers = {"nlohmann", "RapidJSON", "Boost.JSON", "POCO", "simdjson"};

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot open " + path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

struct Document {
    std::string name;
    std::string text;
    simdjson::padded_string padded; // simdjson reads past the end and wants the padding in place
};

// Loaded once before any timing; the benchmarks only read them.
std::vector<Document>& loadedDocuments() {
    static std::vector<Document> loaded = [] {
        std::vector<Document> result;
        for (const std::string& name : documents) {
            std::string text = readFile(std::string(ZEL_DATA_DIR) + "/json/" + name + ".json");
            simdjson::padded_string padded(text);
            result.push_back(Document{name, std::move(text), std::move(padded)});
        }
        return result;
    }();
    return loaded;
}

void finish(benchmark::State& state, const Document& document, std::size_t written = 0) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * document.text.size()));
    if (written) state.counters["written"] = static_cast<double>(written);
}

// --- parse ---------------------------------------------------------------------------------------

void parseZel(benchmark::State& state, const Document& document) {
    for (auto _ : state) {
        Zel::Variant tree = Zel::Json::parse(std::string_view(document.text));
        benchmark::DoNotOptimize(tree);
    }
    finish(state, document);
}

void parseNlohmann(benchmark::State& state, const Document& document) {
    for (auto _ : state) {
        nlohmann::json tree = nlohmann::json::parse(document.text);
        benchmark::DoNotOptimize(tree);
    }
    finish(state, document);
}

void parseRapidJson(benchmark::State& state, const Document& document) {
    for (auto _ : state) {
        rapidjson::Document tree;
        tree.Parse(document.text.data(), document.text.size());
        if (tree.HasParseError()) state.SkipWithError("RapidJSON parse error");
        benchmark::DoNotOptimize(tree);
    }
    finish(state, document);
}

void parseBoostJson(benchmark::State& state, const Document& document) {
    for (auto _ : state) {
        boost::json::value tree = boost::json::parse(document.text);
        benchmark::DoNotOptimize(tree);
    }
    finish(state, document);
}

void parsePoco(benchmark::State& state, const Document& document) {
    for (auto _ : state) {
        Poco::JSON::Parser parser;
        Poco::Dynamic::Var tree = parser.parse(document.text);
        benchmark::DoNotOptimize(tree);
    }
    finish(state, document);
}

void parseSimdjson(benchmark::State& state, const Document& document) {
    // Reusing the parser is how simdjson is meant to be used: it keeps its buffers between documents.
    simdjson::dom::parser parser;
    for (auto _ : state) {
        simdjson::dom::element tree;
        if (parser.parse(document.padded).get(tree)) state.SkipWithError("simdjson parse error");
        benchmark::DoNotOptimize(tree);
    }
    finish(state, document);
}

// --- write ---------------------------------------------------------------------------------------

void writeZel(benchmark::State& state, const Document& document) {
    const Zel::Variant tree = Zel::Json::parse(std::string_view(document.text));
    std::size_t written = 0;
    for (auto _ : state) {
        std::string text = tree.toJson();
        written = text.size();
        benchmark::DoNotOptimize(text);
    }
    finish(state, document, written);
}

void writeNlohmann(benchmark::State& state, const Document& document) {
    const nlohmann::json tree = nlohmann::json::parse(document.text);
    std::size_t written = 0;
    for (auto _ : state) {
        std::string text = tree.dump();
        written = text.size();
        benchmark::DoNotOptimize(text);
    }
    finish(state, document, written);
}

void writeRapidJson(benchmark::State& state, const Document& document) {
    rapidjson::Document tree;
    tree.Parse(document.text.data(), document.text.size());
    std::size_t written = 0;
    for (auto _ : state) {
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        tree.Accept(writer);
        written = buffer.GetSize();
        benchmark::DoNotOptimize(buffer.GetString());
    }
    finish(state, document, written);
}

void writeBoostJson(benchmark::State& state, const Document& document) {
    const boost::json::value tree = boost::json::parse(document.text);
    std::size_t written = 0;
    for (auto _ : state) {
        std::string text = boost::json::serialize(tree);
        written = text.size();
        benchmark::DoNotOptimize(text);
    }
    finish(state, document, written);
}

void writePoco(benchmark::State& state, const Document& document) {
    Poco::JSON::Parser parser;
    const Poco::Dynamic::Var tree = parser.parse(document.text);
    std::size_t written = 0;
    for (auto _ : state) {
        std::ostringstream out;
        Poco::JSON::Stringifier::condense(tree, out);
        std::string text = std::move(out).str();
        written = text.size();
        benchmark::DoNotOptimize(text);
    }
    finish(state, document, written);
}

using Benchmark = void (*)(benchmark::State&, const Document&);

struct Library {
    std::string name;
    Benchmark parse;
    Benchmark write; // null: the library has no writer for its tree
};

const std::vector<Library> libraries = {
    {"Zel", parseZel, writeZel},
    {"nlohmann", parseNlohmann, writeNlohmann},
    {"RapidJSON", parseRapidJson, writeRapidJson},
    {"Boost.JSON", parseBoostJson, writeBoostJson},
    {"POCO", parsePoco, writePoco},
    {"simdjson", parseSimdjson, nullptr},
};

void registerBenchmarks() {
    // Operation, then document, then library: the console output groups the contenders together.
    for (const char* operation : {"Parse", "Write"}) {
        for (const Document& document : loadedDocuments()) {
            for (const Library& library : libraries) {
                Benchmark run = std::string(operation) == "Parse" ? library.parse : library.write;
                if (!run) continue;
                const std::string name = std::string(operation) + "/" + document.name + "/" + library.name;
                benchmark::RegisterBenchmark(name.c_str(), [run, &document](benchmark::State& state) {
                    // A library that throws is reported as failed while the others still run.
                    try {
                        run(state, document);
                    } catch (const std::exception& error) {
                        state.SkipWithError(error.what());
                    }
                })->Unit(benchmark::kMillisecond);
            }
        }
    }
}

void printRatios(const Zel::Bench::CapturingReporter& reporter) {
    constexpr double mebibyte = 1024.0 * 1024.0;
    std::cout
        << "\nZel throughput relative to each library (MiB/s of Zel / MiB/s of the other; above 1 means "
           "Zel is faster):\n";
    for (const char* operation : {"Parse", "Write"}) {
        for (const std::string& document : documents) {
            const auto* zel = reporter.find(std::string(operation) + "/" + document + "/Zel");
            for (const std::string& peer : peers) {
                const auto* other = reporter.find(std::string(operation) + "/" + document + "/" + peer);
                if (!other) continue;
                if (!zel) {
                    std::cout << (operation[0] == 'P' ? "parse " : "write ") << document << ": Zel/" << peer
                              << " = n/a (the Zel benchmark failed or did not run)\n";
                    continue;
                }
                char line[160];
                std::snprintf(line, sizeof line, "%s %-13s Zel/%-10s = %s  (%.1f vs %.1f MiB/s)",
                              operation[0] == 'P' ? "parse" : "write", (document + ":").c_str(), peer.c_str(),
                              Zel::Bench::formatRatio(zel->bytesPerSecond, other->bytesPerSecond).c_str(),
                              zel->bytesPerSecond / mebibyte, other->bytesPerSecond / mebibyte);
                std::cout << line << '\n';
            }
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    return Zel::Bench::runBenchmarks(argc, argv, "zel-bench-json", registerBenchmarks, printRatios);
}
