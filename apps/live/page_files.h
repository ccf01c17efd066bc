/// \file
/// The files of the bench's page, which the program carries.
#pragma once

#include <optional>
#include <string_view>

namespace live {

struct tsPageFile {
    std::string_view type; ///< "text/css"
    std::string_view content;
};

/// \param path of the request: "/", "/bench.css" \return empty: there is no such file
[[nodiscard]] std::optional<tsPageFile> pageFile(std::string_view path);

} // namespace live
