#pragma once

// The real zel-host as a child process with its standard input and output on pipes, for tests that
// talk to it call by call and kill it where they like. An error file of "/dev/stdout" puts the host's
// standard error on the same pipe, for tests that read what it logs (an HTTP host's port).

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

// "a b c" as {"a", "b", "c"}: arguments or environment entries written as one line, where none has a
// space of its own.
inline std::vector<std::string> words(const std::string& text) {
    std::vector<std::string> list;
    std::istringstream split(text);
    for (std::string word; split >> word;)
        list.push_back(word);
    return list;
}

class HostProcess {
public:
    // `arguments` after the program; `environment` entries "NAME=value" added to this process's.
    explicit HostProcess(const std::vector<std::string>& arguments,
                         const std::vector<std::string>& environment = {},
                         const std::string& errorFile = "/dev/null") {
        int input[2];
        int output[2];
        if (pipe(input) != 0 || pipe(output) != 0) throw std::runtime_error("pipe failed");
        m_pid = fork();
        if (m_pid == 0) {
            dup2(input[0], 0);
            dup2(output[1], 1);
            const int errors = open(errorFile.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
            if (errors >= 0) dup2(errors, 2);
            close(input[1]);
            close(output[0]);
            for (const std::string& entry : environment)
                putenv(const_cast<char*>(entry.c_str()));
            std::vector<char*> argv{const_cast<char*>(ZEL_HOST_PATH)};
            for (const std::string& argument : arguments)
                argv.push_back(const_cast<char*>(argument.c_str()));
            argv.push_back(nullptr);
            execv(ZEL_HOST_PATH, argv.data());
            _exit(127);
        }
        close(input[0]);
        close(output[1]);
        m_input = input[1];
        m_output = output[0];
    }
    HostProcess(const HostProcess&) = delete;
    HostProcess& operator=(const HostProcess&) = delete;
    ~HostProcess() {
        if (m_pid > 0) kill();
        if (m_input >= 0) close(m_input);
        if (m_output >= 0) close(m_output);
    }

    void send(const std::string& line) {
        const std::string text = line + "\n";
        for (std::size_t done = 0; done < text.size();) {
            const ssize_t n = write(m_input, text.data() + done, text.size() - done);
            if (n <= 0) throw std::runtime_error("the host closed its input");
            done += static_cast<std::size_t>(n);
        }
    }

    // The next line of standard output; std::runtime_error when none comes within the timeout or
    // the host ended.
    std::string readLine(int timeoutMs = 30000) {
        for (;;) {
            if (const auto end = m_buffer.find('\n'); end != std::string::npos) {
                std::string line = m_buffer.substr(0, end);
                m_buffer.erase(0, end + 1);
                return line;
            }
            pollfd descriptor{m_output, POLLIN, 0};
            const int ready = poll(&descriptor, 1, timeoutMs);
            if (ready < 0 && errno == EINTR) continue;
            if (ready <= 0) throw std::runtime_error("no reply from the host in time");
            char chunk[4096];
            const ssize_t n = read(m_output, chunk, sizeof chunk);
            if (n <= 0) throw std::runtime_error("the host ended");
            m_buffer.append(chunk, static_cast<std::size_t>(n));
        }
    }

    std::string call(const std::string& line) {
        send(line);
        return readLine();
    }

    // Repeats the call until it gets `reply`, for work the host does later (a task, an idle
    // timeout) that no reply announces; false when the reply has not come within the limit.
    bool awaitReply(const std::string& line, const std::string& reply,
                    std::chrono::seconds limit = std::chrono::seconds(20)) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (call(line) != reply) {
            if (std::chrono::steady_clock::now() >= deadline) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return true;
    }

    void kill() {
        ::kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
        m_pid = -1;
    }

    // SIGTERM or SIGINT for a host that serves HTTP until told to stop; finish() then waits for it.
    void signal(int number) { ::kill(m_pid, number); }

    // Closes the host's input and waits for it to end; its exit status, the remaining lines in `rest`.
    int finish(std::vector<std::string>* rest = nullptr) {
        close(m_input);
        m_input = -1;
        try {
            for (;;) {
                std::string line = readLine();
                if (rest != nullptr) rest->push_back(std::move(line));
            }
        } catch (const std::runtime_error&) {
        }
        int status = 0;
        waitpid(m_pid, &status, 0);
        m_pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t m_pid = -1;
    int m_input = -1;
    int m_output = -1;
    std::string m_buffer;
};
