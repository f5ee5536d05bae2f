// Drives the real zel-host process with the real example modules, as a user would.

#include "HostProcess.h"

#include <Zel/Json/Json.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

struct HostRun {
    int status = -1;
    std::vector<std::string> lines; // standard output
    std::string errors;             // standard error
};

// Runs the host to its end with `input` as its standard input.
HostRun runHost(const std::string& arguments, const std::string& input = {}) {
    std::vector<std::string> list = words(arguments);
    // CTest runs the tests of this file as parallel processes: each needs files of its own.
    const std::string prefix = ::testing::TempDir() + "zel-host-" + std::to_string(getpid());
    const std::string errorFile = prefix + "-errors.txt";
    // Each run on a database of its own, gone afterwards.
    list.insert(list.end(), {"--data", prefix + "-data"});
    HostRun run;
    {
        HostProcess host(list, {}, errorFile);
        if (!input.empty()) host.send(input);
        run.status = host.finish(&run.lines);
    }
    std::stringstream errors;
    errors << std::ifstream(errorFile).rdbuf();
    run.errors = errors.str();
    std::filesystem::remove(errorFile);
    std::filesystem::remove_all(prefix + "-data");
    return run;
}

const std::string module = ZEL_NOTES_MODULE_PATH;

} // namespace

TEST(HostEndToEndTest, ScriptedSessionWithTheNotesPlugin) {
    const HostRun run = runHost(module, R"(# a comment, then calls
Notes.add {"text":"buy milk","tags":["home"]}
Notes.add {"text":"call Bob"}

Notes.get {"id":2}
Notes.get {"id":9}
Notes.add {"tags":[]}
Notes.remove {"id":1}
Notes.list
Notes.stats {})");
    EXPECT_EQ(run.status, 0) << run.errors;
    ASSERT_EQ(run.lines.size(), 10u) << run.errors;
    const Zel::Variant init = Zel::Json::parse(run.lines[0]);
    EXPECT_EQ(init["data"]["name"], Zel::Variant("Notes"));
    EXPECT_EQ(init["data"]["services"][1]["reference"], Zel::Variant("Notes"));
    const std::vector<std::string> expected = {
        R"({"data":{"id":1},"result":0})",
        R"({"data":{"id":2},"result":0})",
        R"({"data":{"id":2,"tags":[],"text":"call Bob"},"result":0})",
        R"({"result":1359,"errMsg":"No such note | id=9","errRef":"notFound","data":null,"service":"Notes","operation":"get"})",
        R"({"result":1359,"errMsg":"A note needs a text | param=text","errRef":"badRequest","data":null,"service":"Notes","operation":"add"})",
        R"({"data":{"removed":true},"result":0})",
        R"({"data":[{"id":2,"tags":[],"text":"call Bob"}],"result":0})",
        R"({"data":{"added":2,"count":1},"result":0})",
        R"({"result":0})",
    };
    for (std::size_t i = 0; i < expected.size(); ++i)
        EXPECT_EQ(run.lines[i + 1], expected[i]) << "line " << i + 1;
    // The plug-in's log reached the host's console through the callback.
    EXPECT_NE(run.errors.find("[Info] Notes: Note added | id=1 | source=NotesService.cpp:"),
              std::string::npos)
        << run.errors;
}

TEST(HostEndToEndTest, CommandLineCalls) {
    const HostRun run = runHost(module + R"( --call Notes.add {"text":"x"} --call Notes.list)");
    EXPECT_EQ(run.status, 0) << run.errors;
    ASSERT_EQ(run.lines.size(), 4u);
    EXPECT_EQ(run.lines[2], R"({"data":[{"id":1,"tags":[],"text":"x"}],"result":0})");
}

TEST(HostEndToEndTest, BadInputGetsOneLineAndNonZeroExit) {
    const struct {
        std::string arguments;
        std::string input;
        int status;
        std::string error;
    } cases[] = {
        {"/nonexistent/zel-notes.so", "", 2,
         "zel-host: cannot load plug-in module /nonexistent/zel-notes.so: "},
        {ZEL_LIBRARY_PATH, "", 2, " is not a Zel plug-in module: it does not export zelPluginInit"},
        {module + " --confg x.json", "", 2,
         "zel-host: Unknown option | option=--confg | suggestion=--config"},
        {module + " --call Notes", "", 2,
         "zel-host: Invalid value for option | option=--call | value=Notes | expected=SERVICE.OPERATION"},
        {module + " --init [1]", "", 2, "zel-host: bad --init document: "},
        {module, "Notes.add {\"text\":", 1, "zel-host: malformed JSON params for Notes.add: Unexpected end"},
        {module, "Notes.add {\"text\":x}", 1,
         "zel-host: malformed JSON params for Notes.add: Invalid character #120 at 8"},
        {module, "Nope.get {}", 1,
         "zel-host: unknown service 'Nope' (known: Cache, Callbacks_Notes, DataStore, Events, Messages, "
         "Notes, "
         "PlatformLog, ServiceRegistry, Tasks)"},
        {module, "Notes", 1, "zel-host: expected SERVICE.OPERATION, got 'Notes'"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.arguments + " <<< " + c.input);
        const HostRun run = runHost(c.arguments, c.input);
        EXPECT_EQ(run.status, c.status);
        EXPECT_NE(run.errors.find(c.error), std::string::npos) << run.errors;
        for (const std::string& line : run.lines)
            EXPECT_NO_THROW(Zel::Json::parse(line)) << line;
    }
}

TEST(HostEndToEndTest, ReminderFiresIntoNotesThroughTheHostAndSurvivesARestart) {
    const std::string data = ::testing::TempDir() + "zel-host-reminders-" + std::to_string(getpid());
    std::filesystem::remove_all(data);
    const std::vector<std::string> arguments = {module, ZEL_REMINDERS_MODULE_PATH, "--data", data};
    const std::string note = R"({"id":1,"tags":[],"text":"Reminder: water the plants"})";
    const auto waitForNote = [&](HostProcess& host) {
        ASSERT_TRUE(host.awaitReply("Notes.list", R"({"data":[)" + note + R"(],"result":0})"))
            << "the reminder never became a note";
        EXPECT_EQ(host.call("Reminders.pending"), R"({"data":[],"result":0})");
    };
    {
        HostProcess host(arguments);
        host.readLine();
        host.readLine();
        EXPECT_EQ(host.call(R"(Reminders.add {"text":"water the plants","delayMs":0})"),
                  R"({"data":{"id":1,"notesService":"Notes"},"result":0})");
        waitForNote(host);
        // Due in an hour: still pending when this host goes.
        EXPECT_EQ(host.call(R"(Reminders.add {"text":"later","delayMs":3600000})"),
                  R"({"data":{"id":2,"notesService":"Notes"},"result":0})");
        EXPECT_EQ(host.finish(), 0);
    }
    HostProcess host(arguments);
    host.readLine();
    host.readLine();
    // The first call of the next run schedules what is pending again, due at once.
    ASSERT_TRUE(host.awaitReply("Reminders.pending", R"({"data":[],"result":0})"))
        << "the pending reminder never fired";
    EXPECT_EQ(host.call("Notes.get {\"id\":2}"),
              R"({"data":{"id":2,"tags":[],"text":"Reminder: later"},"result":0})");
    EXPECT_EQ(host.finish(), 0);
    std::filesystem::remove_all(data);
}
