// zel-json: reads a JSON document, prints the shape of its tree and writes it back compactly.
//
//   zel-json [input.json] [-o output.json | -o -]
//
// Without an input it reads the twitter.json sample; without -o it writes <input>.min.json in the
// current directory ("-o -" writes to standard output).
#include <Zel/GenericException.h>
#include <Zel/Json/Json.h>
#include <Zel/Variant.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Shape {
    std::array<std::size_t, 16> countByType{};
    std::size_t maxDepth = 0;
    std::set<std::string> keys;
};

// Walks the tree from an explicit stack: documents can be nested far deeper than a call stack.
Shape measure(const Zel::Variant& root) {
    Shape shape;
    std::vector<std::pair<const Zel::Variant*, std::size_t>> pending{{&root, 1}};
    while (!pending.empty()) {
        const auto [value, depth] = pending.back();
        pending.pop_back();
        ++shape.countByType[static_cast<std::size_t>(value->type())];
        if (depth > shape.maxDepth) shape.maxDepth = depth;
        if (value->isMap() || value->isVector()) {
            for (const auto& entry : *value) {
                if (value->isMap()) shape.keys.insert(entry.key());
                pending.emplace_back(&entry.value(), depth + 1);
            }
        }
    }
    return shape;
}

std::string readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot open " + path.string());
    std::ostringstream content;
    content << in.rdbuf();
    return std::move(content).str();
}

int usage() {
    std::cerr << "usage: zel-json [input.json] [-o output.json | -o -]\n";
    return 2;
}

} // namespace

int main(int argc, char** argv) {
    std::filesystem::path input = std::filesystem::path(ZEL_DATA_DIR) / "json" / "twitter.json";
    std::string output;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "-o") {
            if (++i == argc) return usage();
            output = argv[i];
        } else if (argument == "-h" || argument == "--help") {
            usage();
            return 0;
        } else if (!argument.empty() && argument[0] == '-') {
            return usage();
        } else {
            input = argument;
        }
    }
    if (output.empty()) output = input.stem().string() + ".min.json";

    std::string text;
    try {
        text = readFile(input);
    } catch (const std::exception& error) {
        std::cerr << "zel-json: " << error.what() << '\n';
        return 2;
    }

    Zel::Variant document;
    std::string compact;
    try {
        document = Zel::Json::parse(text);
        compact = document.toJson();
    } catch (const Zel::GenericException& error) {
        std::cerr << "zel-json: " << input.string() << ": " << error.what() << '\n';
        return 1;
    }

    const Shape shape = measure(document);
    std::ostream& report = output == "-" ? std::cerr : std::cout;
    report << "file:          " << input.string() << " (" << text.size() << " bytes)\n";
    for (std::size_t type = 0; type < shape.countByType.size(); ++type) {
        if (shape.countByType[type] == 0) continue;
        std::string name = Zel::Variant::typeToString(static_cast<Zel::Variant::Type>(type)) + ":";
        name.resize(15, ' ');
        report << name << shape.countByType[type] << '\n';
    }
    report << "max depth:     " << shape.maxDepth << '\n';
    report << "distinct keys: " << shape.keys.size() << '\n';

    if (output == "-") {
        std::cout << compact << '\n';
        return 0;
    }
    // Write beside the target and rename, so a failed write never leaves half a file behind.
    const std::string partial = output + ".partial";
    {
        std::ofstream out(partial, std::ios::binary | std::ios::trunc);
        out << compact;
        if (!out.flush()) {
            out.close();
            std::filesystem::remove(partial);
            std::cerr << "zel-json: cannot write " << output << '\n';
            return 2;
        }
    }
    std::error_code error;
    std::filesystem::rename(partial, output, error);
    if (error) {
        std::filesystem::remove(partial);
        std::cerr << "zel-json: cannot write " << output << ": " << error.message() << '\n';
        return 2;
    }
    report << "compact JSON:  " << compact.size() << " bytes written to " << output << '\n';
    return 0;
}
