#pragma once

#include <Zel/Export.h>
#include <Zel/Variant.h>
#include <string>

namespace Zel::Config {

// One place settings come from (a JSON file today; INI or XML files fit the same way). A source
// reads its whole content as a tree of maps whose leaves are values; Configuration merges the trees
// of its sources in the order they were added.
class ZEL_API ISource {
public:
    virtual ~ISource();

    // How error messages name the source: a file's path, "environment", ...
    virtual std::string name() const = 0;
    // A map Variant. ConfigException (naming the source) when the content cannot be read.
    virtual Variant read() const = 0;
};

} // namespace Zel::Config
