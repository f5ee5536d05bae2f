// zel-bench-db: Zel::Db against hand-written code over the same drivers. Each group prints its
// ratios after the table; run on a quiet machine, e.g. --benchmark_min_time=1.

#include "DbBench.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <unistd.h>
#include <vector>

namespace Zel::Bench::Db {
namespace {

std::vector<Group>& groups() {
    static std::vector<Group> all;
    return all;
}

class Scratch {
public:
    Scratch() {
        std::string pattern = (std::filesystem::temp_directory_path() / "zel-bench-db-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make " + pattern);
        m_path = pattern;
    }
    ~Scratch() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

} // namespace

bool addGroup(Group group) {
    groups().push_back(group);
    return true;
}

const std::string& scratchDirectory() {
    static const Scratch scratch;
    return scratch.path();
}

} // namespace Zel::Bench::Db

int main(int argc, char** argv) {
    using namespace Zel::Bench::Db;
    return Zel::Bench::runBenchmarks(
        argc, argv, "zel-bench-db",
        [] {
            for (const Group& group : groups())
                group.registerBenchmarks();
        },
        [](const Zel::Bench::CapturingReporter& reporter) {
            for (const Group& group : groups()) {
                std::printf("\n%s:\n", group.name);
                group.printRatios(reporter);
            }
        });
}
