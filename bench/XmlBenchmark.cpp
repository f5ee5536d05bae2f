// Parses, walks and writes XML documents of a few MB with Zel::Xml and with pugixml side by side in
// one run, then prints Zel's throughput relative to pugixml.
//
// The documents are real data: the twitter and citm_catalog JSON documents of the data directory
// turned into XML (short scalars as attributes, long ones as text elements with the escapes they
// need), repeated to a few MB. Both parsers keep the same things: elements, attributes, text,
// CDATA, comments and PIs, with entities decoded and line ends normalised.

#include "CapturingReporter.h"

#include <Zel/Json/Json.h>
#include <Zel/Variant.h>
#include <Zel/Xml/Document.h>
#include <benchmark/benchmark.h>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <malloc.h>
#include <pugixml.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#ifndef ZEL_DATA_DIR
#error "ZEL_DATA_DIR must name the directory that holds json/"
#endif

namespace {

const std::vector<std::string> documents = {"twitter", "citm_catalog"};
constexpr unsigned pugiOptions = pugi::parse_default | pugi::parse_comments | pugi::parse_pi;

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot open " + path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void escape(const std::string& text, std::string& out, bool attribute) {
    for (const char c : text) {
        switch (c) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '"':
            out += attribute ? "&quot;" : "\"";
            break;
        case '\n':
            out += attribute ? "&#10;" : "\n";
            break;
        default:
            // Control characters other than tab, line feed and return are not XML characters.
            if (static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\r')
                out += ' ';
            else
                out += c;
        }
    }
}

std::string tagName(const std::string& key) {
    std::string name;
    for (const char c : key)
        name += (std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-') ? c : '_';
    if (name.empty() || !(std::isalpha(static_cast<unsigned char>(name[0])) || name[0] == '_'))
        name.insert(0, "k");
    return name;
}

void toXml(const std::string& name, const Zel::Variant& value, std::string& out, int depth) {
    out.append(static_cast<std::size_t>(depth) * 2, ' ');
    out += '<';
    out += name;
    if (value.isMap()) {
        std::vector<std::pair<std::string, const Zel::Variant*>> children;
        for (const auto& entry : value) {
            const Zel::Variant& child = entry.value();
            const std::string key = tagName(entry.key());
            if (child.isMap() || child.isVector() || child.isNull()) {
                children.emplace_back(key, &child);
                continue;
            }
            const std::string text = static_cast<std::string>(child);
            if (text.size() > 40) {
                children.emplace_back(key, &child);
                continue;
            }
            out += ' ';
            out += key;
            out += "=\"";
            escape(text, out, true);
            out += '"';
        }
        if (children.empty()) {
            out += "/>\n";
            return;
        }
        out += ">\n";
        for (const auto& [key, child] : children)
            toXml(key, *child, out, depth + 1);
    } else if (value.isVector()) {
        out += ">\n";
        for (const auto& entry : value)
            toXml("item", entry.value(), out, depth + 1);
    } else if (value.isNull()) {
        out += "/>\n";
        return;
    } else {
        out += '>';
        const std::string text = static_cast<std::string>(value);
        if (text.find('<') != std::string::npos && text.find("]]>") == std::string::npos) {
            out += "<![CDATA[" + text + "]]>";
        } else {
            escape(text, out, false);
        }
        out += "</" + name + ">\n";
        return;
    }
    out.append(static_cast<std::size_t>(depth) * 2, ' ');
    out += "</" + name + ">\n";
}

struct Document {
    std::string name;
    std::string text;
};

// Built once before any timing; the benchmarks only read them.
std::vector<Document>& loadedDocuments() {
    static std::vector<Document> loaded = [] {
        std::vector<Document> result;
        for (const std::string& name : documents) {
            const Zel::Variant json =
                Zel::Json::parse(readFile(std::string(ZEL_DATA_DIR) + "/json/" + name + ".json"));
            std::string body;
            toXml("document", json, body, 1);
            std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!-- converted from " + name +
                               ".json -->\n<collection xmlns=\"urn:zel:bench\">\n";
            while (text.size() < 4 * 1024 * 1024)
                text += body;
            text += "</collection>\n";
            result.push_back(Document{name, std::move(text)});
        }
        return result;
    }();
    return loaded;
}

void finish(benchmark::State& state, const Document& document) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * document.text.size()));
}

void parseZel(benchmark::State& state, const Document& document) {
    for (auto _ : state) {
        Zel::Xml::Document parsed = Zel::Xml::Document::parse(document.text);
        benchmark::DoNotOptimize(parsed.root());
    }
    finish(state, document);
}

void parsePugi(benchmark::State& state, const Document& document) {
    for (auto _ : state) {
        pugi::xml_document parsed;
        const pugi::xml_parse_result result =
            parsed.load_buffer(document.text.data(), document.text.size(), pugiOptions, pugi::encoding_utf8);
        if (!result) throw std::runtime_error(std::string("pugixml: ") + result.description());
        benchmark::DoNotOptimize(parsed.first_child());
    }
    finish(state, document);
}

// The walk a reader of a document does: every element, its attributes and its text, counting the
// elements of one name on the way.
struct Tally {
    std::size_t bytes = 0;
    std::size_t items = 0;
};

void walkZel(Zel::Xml::Node node, Tally& tally) {
    for (const Zel::Xml::Node child : node.children()) {
        if (child.type() == Zel::Xml::NodeType::Element) {
            if (child.name() == "item") ++tally.items;
            for (Zel::Xml::Attribute attribute = child.firstAttribute(); attribute;
                 attribute = attribute.next())
                tally.bytes += attribute.value().size();
            walkZel(child, tally);
        } else {
            tally.bytes += child.value().size();
        }
    }
}

void walkPugi(pugi::xml_node node, Tally& tally) {
    for (pugi::xml_node child = node.first_child(); child; child = child.next_sibling()) {
        if (child.type() == pugi::node_element) {
            if (std::strcmp(child.name(), "item") == 0) ++tally.items;
            for (pugi::xml_attribute attribute = child.first_attribute(); attribute;
                 attribute = attribute.next_attribute())
                tally.bytes += std::strlen(attribute.value());
            walkPugi(child, tally);
        } else {
            tally.bytes += std::strlen(child.value());
        }
    }
}

void queryZel(benchmark::State& state, const Document& document) {
    const Zel::Xml::Document parsed = Zel::Xml::Document::parse(document.text);
    Tally tally;
    for (auto _ : state) {
        tally = {};
        walkZel(parsed.node(), tally);
        benchmark::DoNotOptimize(tally);
    }
    state.counters["items"] = static_cast<double>(tally.items);
    finish(state, document);
}

void queryPugi(benchmark::State& state, const Document& document) {
    pugi::xml_document parsed;
    parsed.load_buffer(document.text.data(), document.text.size(), pugiOptions, pugi::encoding_utf8);
    Tally tally;
    for (auto _ : state) {
        tally = {};
        walkPugi(parsed, tally);
        benchmark::DoNotOptimize(tally);
    }
    state.counters["items"] = static_cast<double>(tally.items);
    finish(state, document);
}

void writeZel(benchmark::State& state, const Document& document) {
    const Zel::Xml::Document parsed = Zel::Xml::Document::parse(document.text);
    for (auto _ : state) {
        std::string text = parsed.toString({true, "  "});
        benchmark::DoNotOptimize(text.data());
    }
    finish(state, document);
}

// pugixml's own fastest way to text: a writer that appends to a string.
struct StringWriter : pugi::xml_writer {
    std::string text;
    void write(const void* data, std::size_t size) override {
        text.append(static_cast<const char*>(data), size);
    }
};

void writePugi(benchmark::State& state, const Document& document) {
    pugi::xml_document parsed;
    parsed.load_buffer(document.text.data(), document.text.size(), pugiOptions, pugi::encoding_utf8);
    for (auto _ : state) {
        StringWriter writer;
        parsed.save(writer, "  ", pugi::format_default, pugi::encoding_utf8);
        benchmark::DoNotOptimize(writer.text.data());
    }
    finish(state, document);
}

using Benchmark = void (*)(benchmark::State&, const Document&);
struct Operation {
    const char* name;
    Benchmark zel;
    Benchmark pugi;
};
const std::vector<Operation> operations = {
    {"Parse", parseZel, parsePugi}, {"Query", queryZel, queryPugi}, {"Write", writeZel, writePugi}};

void registerBenchmarks() {
    // Both parsers allocate a few MB per document. Left to its defaults, glibc maps such blocks
    // fresh and hands freed heap back to the system, so every iteration would mostly measure page
    // faults of the kernel; kept, the figures show the parsers.
    mallopt(M_MMAP_THRESHOLD, 256 * 1024 * 1024);
    mallopt(M_TRIM_THRESHOLD, 1024 * 1024 * 1024);
    for (const Operation& operation : operations) {
        for (const Document& document : loadedDocuments()) {
            for (const auto& [library, run] :
                 {std::pair{"Zel", operation.zel}, std::pair{"pugixml", operation.pugi}}) {
                const std::string name = std::string(operation.name) + "/" + document.name + "/" + library;
                benchmark::RegisterBenchmark(name.c_str(), [run = run, &document](benchmark::State& state) {
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
    std::cout << "\nZel::Xml throughput relative to pugixml (above 1 means Zel is faster):\n";
    for (const Operation& operation : operations) {
        for (const std::string& document : documents) {
            const std::string prefix = std::string(operation.name) + "/" + document + "/";
            const auto* zel = reporter.find(prefix + "Zel");
            const auto* pugi = reporter.find(prefix + "pugixml");
            if (!zel || !pugi) continue;
            char line[160];
            std::snprintf(line, sizeof line, "%s %-14s Zel/pugixml = %s  (%.1f vs %.1f MiB/s)",
                          operation.name, (document + ":").c_str(),
                          Zel::Bench::formatRatio(zel->bytesPerSecond, pugi->bytesPerSecond).c_str(),
                          zel->bytesPerSecond / mebibyte, pugi->bytesPerSecond / mebibyte);
            std::cout << line << '\n';
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    return Zel::Bench::runBenchmarks(argc, argv, "zel-bench-xml", registerBenchmarks, printRatios);
}
