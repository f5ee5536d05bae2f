#pragma once

#include <Zel/Console/Application.h>

namespace ZelHost {

class Host;
struct Settings;

// zel-host's command line and its run: reads the configuration, opens the database, loads and
// initialises the plug-in modules, runs calls (from the command line, standard input or HTTP) and
// de-initialises them. Every reply is printed as one JSON line on standard output, everything else
// (the plug-ins' log, messages, errors) goes to standard error.
//
// SIGINT and SIGTERM stop it gracefully wherever it is: between calls, in a pause, while reading
// standard input or while serving HTTP; the plug-ins are de-initialised all the same.
class HostApplication : public Zel::Console::Application {
public:
    HostApplication();
    ~HostApplication() override;

protected:
    int run(const Zel::Console::Arguments& arguments) override;
    void onStopRequested() noexcept override;

private:
    // Serves the host's services over HTTP until a stop is requested; false when it cannot.
    bool serveHttp(const Settings& settings, Host& host);

    // Written to when a stop is requested, so that a wait for input ends.
    int m_wake[2] = {-1, -1};
};

} // namespace ZelHost
