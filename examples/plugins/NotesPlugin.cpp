// The example plug-in module: one service, "Notes", declared in a few lines. Load it into the
// reference host with
//     build/release/tools/zel-host/zel-host build/release/examples/plugins/zel-notes.so
// and type calls such as:  Notes.add {"text":"buy milk"}

#include "NotesService.h"

#include <Zel/Platform/PluginModule.h>

namespace {

std::shared_ptr<Zel::Platform::Plugin> createPlugin() {
    auto plugin = std::make_shared<Zel::Platform::Plugin>();
    plugin->setName("Notes").setDescription("Keeps short notes in the host's data store");
    plugin->setConfigured();
    plugin->addService(std::make_shared<NotesService>());
    return plugin;
}

} // namespace

ZEL_PLUGIN_MODULE(createPlugin)
