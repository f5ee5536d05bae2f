#pragma once

#include <Zel/Log/Level.h>

#include <chrono>
#include <cstdint>
#include <string_view>

namespace Zel::Log {

// One log record as a sink sees it while writing. It only views the caller's strings and the
// writing thread's context: it is valid for the duration of the call that hands it over and must
// be copied (LogString::Entry does) to be kept.
struct Record {
    Level level = Level::Info;
    DataType dataType = DataType::Text;
    std::string_view message;
    std::string_view data;
    const char* file = nullptr; // may be null when the caller gave no source position
    int line = 0;
    std::chrono::system_clock::time_point time;
    std::uint64_t threadId = 0; // the operating system's number for the logging thread
    int subsystem = 0;          // from ThreadContext; 0 when none is installed
    std::string_view context;   // from ThreadContext; empty when none is installed
};

} // namespace Zel::Log
