#pragma once

#include <Zel/Net/Http/IRequestHandler.h>
#include <filesystem>
#include <string>
#include <string_view>

namespace Zel::Net::Http {

// Serves the files below a root folder for GET and HEAD: "Content-Type" from the extension,
// "ETag" and "Last-Modified" with 304 for a matching "If-None-Match" or "If-Modified-Since", one
// "Range" of bytes with 206 (416 when it lies beyond the file). A folder is served by its
// "index.html".
//
// Nothing outside the root is ever served: the path is percent-decoded once, a ".." segment, a
// NUL or a backslash in it is refused, and the file found must still lie below the root once every
// symbolic link is resolved. Every refusal answers 404, so that a prober learns nothing about what
// exists outside. Other methods answer 405 with "Allow: GET, HEAD".
//
// Thread safety: handle() may run on any number of threads at once.
class ZEL_API StaticFileHandler : public IRequestHandler {
public:
    // ArgumentException "Static files: root is not a folder | root=..." when it is not one.
    explicit StaticFileHandler(const std::filesystem::path& root, std::string urlPrefix = "/");
    ~StaticFileHandler() override;

    void handle(Request& request, Response& response) override;

    const std::filesystem::path& root() const noexcept { return m_root; }
    // The type for a file name's extension; "application/octet-stream" when unknown.
    static std::string_view mimeType(const std::filesystem::path& file);

private:
    std::filesystem::path m_root; // canonical
    std::string m_prefix;
};

} // namespace Zel::Net::Http
