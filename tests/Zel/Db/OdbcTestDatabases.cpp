#include "TestDatabase.h"

#include <Zel/Db/Connection.h>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <mutex>
#include <pwd.h>
#include <random>
#include <stdexcept>
#include <sys/types.h>
#include <unistd.h>

namespace ZelTest {
namespace {

void run(const std::string& command) {
    if (std::system(command.c_str()) != 0) throw std::runtime_error("command failed: " + command);
}

class SqliteDatabase final : public TestDatabase {
public:
    SqliteDatabase() : m_directory(makeTempDirectory("zel-sqlite-")) {}
    ~SqliteDatabase() override {
        std::error_code ignored;
        std::filesystem::remove_all(m_directory, ignored);
    }

    std::string name() const override { return "sqlite"; }
    std::string connectionString() const override {
        return "DRIVER=SQLite3;Database=" + m_directory + "/test.db";
    }
    std::string type(std::string_view portableName) const override {
        if (portableName == "BINARY") return "BLOB";
        return std::string(portableName);
    }

private:
    std::string m_directory;
};

// A private PostgreSQL cluster for this process: started on first use, stopped by the destructor of
// its static instance at exit. A watchdog shell waits for the end of a pipe that only this process
// holds, so that the cluster goes away even when the process dies without running destructors.
class PostgresCluster {
public:
    static PostgresCluster& instance() {
        static PostgresCluster cluster;
        return cluster;
    }

    std::string connectionString(const std::string& database) const {
        return "DRIVER={PostgreSQL Unicode};Servername=" + m_directory + ";Port=" + std::to_string(m_port) +
               ";Database=" + database +
               ";UID=postgres;PWD=;Protocol=7.4-1;CommLog=0;Debug=0;BoolsAsChar=0;ByteaAsLongVarBinary=1";
    }

    // Statements on the maintenance database, one at a time.
    void admin(const std::string& sql) {
        std::lock_guard lock(m_mutex);
        m_admin->execute(sql);
    }

    ~PostgresCluster() {
        m_admin.reset();
        stop();
        removeDriverLog();
    }

private:
    PostgresCluster() : m_directory(makeTempDirectory("zel-pg-")) {
        try {
            start();
            m_admin = Zel::Db::Connection::create(connectionString("postgres"));
        } catch (...) {
            stop();
            throw;
        }
    }

    std::string asOwner(const std::string& command) const {
        return m_root ? "runuser -u postgres -- " + command : command;
    }

    void start() {
        m_root = ::geteuid() == 0;
        if (m_root) {
            const passwd* user = ::getpwnam("postgres");
            if (user == nullptr || ::chown(m_directory.c_str(), user->pw_uid, user->pw_gid) != 0)
                throw std::runtime_error("cannot hand " + m_directory + " to the postgres user");
        }
        startWatchdog();
        std::random_device random;
        m_port = std::uniform_int_distribution<int>(20000, 60000)(random);
        const std::string bin = "/usr/lib/postgresql/15/bin/";
        run(asOwner(bin + "initdb -D " + m_directory +
                    "/data -U postgres -A trust -E UTF8 --no-locale --no-sync") +
            " > " + m_directory + "/initdb.log 2>&1");
        run(asOwner(bin + "pg_ctl -D " + m_directory + "/data -w -t 120 -l " + m_directory +
                    "/server.log -o \"-c listen_addresses='' -c unix_socket_directories=" + m_directory +
                    " -c port=" + std::to_string(m_port) +
                    " -c fsync=off -c full_page_writes=off -c synchronous_commit=off\" start") +
            " > /dev/null 2>&1");
    }

    std::string stopCommand() const {
        return asOwner("/usr/lib/postgresql/15/bin/pg_ctl -D " + m_directory + "/data -w -m fast stop") +
               " > /dev/null 2>&1; rm -rf " + m_directory;
    }

    void startWatchdog() {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
        const std::string script = "cat > /dev/null; " + stopCommand();
        const pid_t child = ::fork();
        if (child == 0) {
            ::dup2(ends[0], 0);
            const int null = ::open("/dev/null", O_WRONLY);
            ::dup2(null, 1);
            ::dup2(null, 2);
            ::setsid();
            ::execl("/bin/sh", "sh", "-c", script.c_str(), static_cast<char*>(nullptr));
            ::_exit(127);
        }
        ::close(ends[0]);
        if (child < 0) {
            ::close(ends[1]);
            throw std::runtime_error("fork failed");
        }
        m_watchdogPipe = ends[1];
    }

    void stop() noexcept {
        if (m_port != 0) std::system(stopCommand().c_str());
        if (m_watchdogPipe >= 0) ::close(m_watchdogPipe);
        std::error_code ignored;
        std::filesystem::remove_all(m_directory, ignored);
    }

    // psqlODBC opens its log file before it reads CommLog=0 from the connection string, and leaves
    // "psqlodbc_<program>_<user><pid>.log" behind in the temporary directory.
    static void removeDriverLog() noexcept {
        const passwd* user = ::getpwuid(::geteuid());
        if (user == nullptr) return;
        const std::string suffix = "_" + std::string(user->pw_name) + std::to_string(::getpid()) + ".log";
        std::error_code error;
        for (const auto& entry : std::filesystem::directory_iterator("/tmp", error)) {
            const std::string name = entry.path().filename().string();
            if (name.rfind("psqlodbc_", 0) == 0 && name.size() > suffix.size() &&
                name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0)
                std::filesystem::remove(entry.path(), error);
        }
    }

    std::string m_directory;
    int m_port = 0;
    bool m_root = false;
    int m_watchdogPipe = -1;
    std::mutex m_mutex;
    std::unique_ptr<Zel::Db::Connection> m_admin;
};

class PostgresDatabase final : public TestDatabase {
public:
    PostgresDatabase() {
        static std::atomic<int> counter{0};
        m_database = "zel_test_" + std::to_string(::getpid()) + "_" + std::to_string(++counter);
        PostgresCluster::instance().admin("CREATE DATABASE " + m_database);
    }
    ~PostgresDatabase() override {
        try {
            PostgresCluster::instance().admin("DROP DATABASE " + m_database + " WITH (FORCE)");
        } catch (...) {
            // The cluster goes at exit anyway.
        }
    }

    std::string name() const override { return "postgresql"; }
    std::string connectionString() const override {
        return PostgresCluster::instance().connectionString(m_database);
    }
    std::string type(std::string_view portableName) const override {
        if (portableName == "BINARY") return "BYTEA";
        if (portableName == "DOUBLE") return "DOUBLE PRECISION";
        return std::string(portableName);
    }

private:
    std::string m_database;
};

} // namespace

std::unique_ptr<TestDatabase> makeSqliteDatabase() {
    return std::make_unique<SqliteDatabase>();
}

std::unique_ptr<TestDatabase> makePostgresDatabase() {
    return std::make_unique<PostgresDatabase>();
}

} // namespace ZelTest
