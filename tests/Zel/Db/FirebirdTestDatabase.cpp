#include "TestDatabase.h"

#include <Zel/Db/Connection.h>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>

namespace ZelTest {
namespace {

// The embedded engine keeps its lock files in FIREBIRD_LOCK (/tmp/firebird by default), which a
// run by another user could own. Set before the first attachment, and inherited by the child
// processes of the tests, which must see the same locks to find a file held.
const bool lockDirectorySet = [] {
    const std::string directory = "/tmp/zel-firebird-lock-" + std::to_string(::getuid());
    ::setenv("FIREBIRD_LOCK", directory.c_str(), 0);
    return true;
}();

class FirebirdTestDatabase : public TestDatabase {
public:
    FirebirdTestDatabase() : m_directory(makeTempDirectory("zel-firebird-")) {
        m_path = (m_directory / "test.fdb").string();
        // Forced writes off: with them every commit waits for the disk, some 1,300 a second.
        Zel::Db::Connection::create("Database=" + m_path + ";Create=1;ForcedWrites=0")->close();
    }
    ~FirebirdTestDatabase() override {
        std::error_code ignored;
        std::filesystem::remove_all(m_directory, ignored);
    }

    std::string name() const override { return "firebird"; }
    std::string connectionString() const override { return m_path; }
    std::string type(std::string_view portableName) const override {
        if (portableName == "TEXT") return "BLOB SUB_TYPE TEXT";
        if (portableName == "BINARY") return "BLOB";
        if (portableName == "DOUBLE") return "DOUBLE PRECISION";
        return std::string(portableName);
    }

private:
    std::filesystem::path m_directory;
    std::string m_path;
};

} // namespace

std::unique_ptr<TestDatabase> makeFirebirdDatabase() {
    (void)lockDirectorySet;
    return std::make_unique<FirebirdTestDatabase>();
}

} // namespace ZelTest

// LeakSanitizer reads these when the tests run under it. The client library opens an iconv
// converter for the process and the engine fills ICU's caches; neither frees them before exit.
// Suppressed by those names alone, so that a leak of the library's own objects stays visible.
extern "C" __attribute__((visibility("default"), used)) const char* __lsan_default_suppressions() {
    return "leak:iconv_open\nleak:__gconv\nleak:libicuuc.so\n";
}
