#include <Zel/ArgumentException.h>
#include <Zel/IO/FileStream.h>
#include <Zel/Net/Http/ContentLengthBodyStream.h>
#include <Zel/Net/Http/NotFoundHandler.h>
#include <Zel/Net/Http/Request.h>
#include <Zel/Net/Http/Response.h>
#include <Zel/Net/Http/Router.h>
#include <Zel/Net/Http/StaticFileHandler.h>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <utility>

namespace Zel::Net::Http {

namespace {

namespace fs = std::filesystem;

constexpr std::array<std::pair<std::string_view, std::string_view>, 22> mimeTypes{{
    {".html", "text/html; charset=utf-8"},
    {".htm", "text/html; charset=utf-8"},
    {".css", "text/css; charset=utf-8"},
    {".js", "text/javascript; charset=utf-8"},
    {".mjs", "text/javascript; charset=utf-8"},
    {".json", "application/json"},
    {".txt", "text/plain; charset=utf-8"},
    {".xml", "application/xml"},
    {".svg", "image/svg+xml"},
    {".png", "image/png"},
    {".jpg", "image/jpeg"},
    {".jpeg", "image/jpeg"},
    {".gif", "image/gif"},
    {".webp", "image/webp"},
    {".ico", "image/x-icon"},
    {".pdf", "application/pdf"},
    {".wasm", "application/wasm"},
    {".woff", "font/woff"},
    {".woff2", "font/woff2"},
    {".csv", "text/csv; charset=utf-8"},
    {".zip", "application/zip"},
    {".mp4", "video/mp4"},
}};

std::string httpDate(std::time_t time) {
    std::tm parts{};
    gmtime_r(&time, &parts);
    static constexpr const char* days[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static constexpr const char* months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                             "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    char text[40];
    std::snprintf(text, sizeof text, "%s, %02d %s %04d %02d:%02d:%02d GMT", days[parts.tm_wday],
                  parts.tm_mday, months[parts.tm_mon], parts.tm_year + 1900, parts.tm_hour, parts.tm_min,
                  parts.tm_sec);
    return text;
}

// Whether `path` lies at or below `root`; both canonical.
bool isBelow(const fs::path& path, const fs::path& root) {
    auto p = path.begin();
    for (auto r = root.begin(); r != root.end(); ++r, ++p) {
        if (r->empty()) continue;
        if (p == path.end() || *p != *r) return false;
    }
    return true;
}

struct Range {
    std::int64_t first = 0;
    std::int64_t length = 0;
};

enum class RangeResult { None, Valid, Unsatisfiable };

bool parseNumber(std::string_view text, std::int64_t& value) {
    if (text.empty()) return false;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() && value >= 0;
}

// One "bytes=first-last", "bytes=first-" or "bytes=-suffix"; anything else (several ranges, other
// units) is ignored and the whole file served, as RFC 9110 allows.
RangeResult parseRange(std::string_view header, std::int64_t size, Range& range) {
    if (header.substr(0, 6) != "bytes=" || header.find(',') != std::string_view::npos)
        return RangeResult::None;
    header.remove_prefix(6);
    const auto dash = header.find('-');
    if (dash == std::string_view::npos) return RangeResult::None;
    const std::string_view firstText = header.substr(0, dash);
    const std::string_view lastText = header.substr(dash + 1);
    std::int64_t first = 0;
    std::int64_t last = 0;
    if (firstText.empty()) {
        if (!parseNumber(lastText, last)) return RangeResult::None;
        if (last == 0 || size == 0) return RangeResult::Unsatisfiable;
        range.length = std::min(last, size);
        range.first = size - range.length;
        return RangeResult::Valid;
    }
    if (!parseNumber(firstText, first)) return RangeResult::None;
    if (lastText.empty())
        last = size - 1;
    else if (!parseNumber(lastText, last) || last < first)
        return RangeResult::None;
    if (first >= size) return RangeResult::Unsatisfiable;
    range.first = first;
    range.length = std::min(last, size - 1) - first + 1;
    return RangeResult::Valid;
}

} // namespace

StaticFileHandler::StaticFileHandler(const fs::path& root, std::string urlPrefix)
    : m_prefix(std::move(urlPrefix)) {
    std::error_code error;
    m_root = fs::canonical(root, error);
    if (error || !fs::is_directory(m_root))
        throw ArgumentException("Static files: root is not a folder | root=" + root.string());
    if (m_prefix.empty() || m_prefix.back() != '/') m_prefix += '/';
}

StaticFileHandler::~StaticFileHandler() = default;

std::string_view StaticFileHandler::mimeType(const fs::path& file) {
    std::string extension = file.extension().string();
    for (char& c : extension)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    for (const auto& [known, type] : mimeTypes)
        if (known == extension) return type;
    return "application/octet-stream";
}

void StaticFileHandler::handle(Request& request, Response& response) {
    const std::string& method = request.method();
    if (method != "GET" && method != "HEAD") {
        response.setStatusCode(405);
        response.headers().set("Allow", "GET, HEAD");
        return;
    }
    NotFoundHandler notFound;
    std::string_view path = Router::pathOf(request.requestUri());
    // "/static" for the prefix "/static/" names the folder too.
    if (path.size() + 1 == m_prefix.size() && m_prefix.starts_with(path))
        path = "";
    else if (path.starts_with(m_prefix))
        path.remove_prefix(m_prefix.size());
    else
        return notFound.handle(request, response);

    std::string relative;
    if (!Router::decode(path, relative) || relative.find('\0') != std::string::npos ||
        relative.find('\\') != std::string::npos)
        return notFound.handle(request, response);
    fs::path file = m_root;
    std::string_view rest = relative;
    while (!rest.empty()) {
        const auto slash = rest.find('/');
        const std::string_view segment = rest.substr(0, slash);
        rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash + 1);
        if (segment == "..") return notFound.handle(request, response);
        if (!segment.empty() && segment != ".") file /= segment;
    }

    std::error_code error;
    file = fs::canonical(file, error);
    if (!error && fs::is_directory(file, error)) file = fs::canonical(file / "index.html", error);
    // Symbolic links may lead anywhere: only where they end counts.
    if (error || !fs::is_regular_file(file, error) || !isBelow(file, m_root))
        return notFound.handle(request, response);

    const auto size = static_cast<std::int64_t>(fs::file_size(file, error));
    const auto modified = fs::last_write_time(file, error);
    if (error) return notFound.handle(request, response);
    const auto modifiedSystem = std::chrono::file_clock::to_sys(modified);
    const std::string lastModified = httpDate(std::chrono::system_clock::to_time_t(
        std::chrono::time_point_cast<std::chrono::system_clock::duration>(modifiedSystem)));
    char etag[48];
    std::snprintf(etag, sizeof etag, "\"%llx-%llx\"", static_cast<unsigned long long>(size),
                  static_cast<unsigned long long>(modified.time_since_epoch().count()));

    Headers& headers = response.headers();
    headers.set("ETag", std::string_view(etag));
    headers.set("Last-Modified", lastModified);
    headers.set("Accept-Ranges", "bytes");
    const auto ifNoneMatch = request.headers().find("If-None-Match");
    const bool notModified = ifNoneMatch ? (*ifNoneMatch == etag || *ifNoneMatch == "*")
                                         : request.headers().find("If-Modified-Since") == lastModified;
    if (notModified) {
        response.setStatusCode(304);
        return;
    }

    Range range;
    RangeResult ranged = RangeResult::None;
    if (const auto header = request.headers().find("Range")) ranged = parseRange(*header, size, range);
    if (ranged == RangeResult::Unsatisfiable) {
        response.setStatusCode(416);
        headers.set("Content-Range", "bytes */" + std::to_string(size));
        return;
    }
    auto stream = std::make_shared<IO::FileStream>(file);
    headers.setContentType(mimeType(file));
    if (ranged == RangeResult::Valid) {
        stream->setPosition(range.first);
        response.setStatusCode(206);
        headers.set("Content-Range", "bytes " + std::to_string(range.first) + "-" +
                                         std::to_string(range.first + range.length - 1) + "/" +
                                         std::to_string(size));
        response.setBody(std::make_shared<ContentLengthBodyStream>(std::move(stream), range.length));
        return;
    }
    response.setBody(std::move(stream));
}

} // namespace Zel::Net::Http
