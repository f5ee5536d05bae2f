// The second example plug-in module: reminders that become notes of the first one later. Load both
// into the reference host:
//     zel-host zel-notes.so zel-reminders.so
// and type  Reminders.add {"text":"water the plants","delayMs":500}  then, a moment later,  Notes.list

#include "RemindersService.h"

#include <Zel/Platform/PluginModule.h>

namespace {

std::shared_ptr<Zel::Platform::Plugin> createPlugin() {
    auto plugin = std::make_shared<Zel::Platform::Plugin>();
    plugin->setName("Reminders").setDescription("Adds notes later, through the host's tasks");
    plugin->setConfigured();
    plugin->addService(std::make_shared<RemindersService>());
    return plugin;
}

} // namespace

ZEL_PLUGIN_MODULE(createPlugin)
