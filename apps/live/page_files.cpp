#include "apps/live/page_files.h"

#include "apps/live/page_content.h"

namespace live {

namespace {

std::string_view typeOf(std::string_view path) {
    if (path.ends_with(".html")) {
        return "text/html; charset=utf-8";
    }
    return path.ends_with(".css") ? "text/css; charset=utf-8" : "text/javascript; charset=utf-8";
}

} // namespace

std::optional<tsPageFile> pageFile(std::string_view path) {
    const std::string_view wanted = path == "/" ? "/index.html" : path;
    for (const auto& [name, content] : kPageContent) {
        if (name == wanted) {
            return tsPageFile{typeOf(name), content};
        }
    }
    return std::nullopt;
}

} // namespace live
