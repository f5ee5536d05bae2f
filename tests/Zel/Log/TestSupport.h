#pragma once

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>
#include <vector>

namespace Zel::Log::Testing {

// A fresh directory under the system's temporary directory, removed with everything in it.
class TempDir {
public:
    TempDir() {
        static std::atomic<int> counter{0};
        m_path = std::filesystem::temp_directory_path() /
                 ("zel-log-test-" + std::to_string(::getpid()) + "-" + std::to_string(counter++));
        std::filesystem::remove_all(m_path);
        std::filesystem::create_directories(m_path);
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& path() const { return m_path; }
    std::filesystem::path operator/(const std::string& name) const { return m_path / name; }

private:
    std::filesystem::path m_path;
};

// The message of the `Exception` that `body` throws, or "no exception"; an exception of another type
// fails the calling test.
template <class Exception, class Body>
std::string messageOf(Body&& body) {
    try {
        body();
    } catch (const Exception& e) {
        return e.message();
    }
    return "no exception";
}

inline std::string readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Splits at "\r\n"; a trailing piece without the terminator is kept so that tests see it.
inline std::vector<std::string> crlfLines(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t start = 0;
    for (;;) {
        const std::size_t end = text.find("\r\n", start);
        if (end == std::string::npos) break;
        lines.push_back(text.substr(start, end - start));
        start = end + 2;
    }
    if (start < text.size()) lines.push_back(text.substr(start));
    return lines;
}

} // namespace Zel::Log::Testing
