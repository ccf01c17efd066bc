/// \file
/// A delivered picture, small enough for a page.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace sim {

struct tsThumbnail {
    std::uint32_t width = 0;  ///< of the thumbnail [pixels]
    std::uint32_t height = 0; ///< of the thumbnail [lines]
    std::string png;          ///< bytes of the file

    std::uint32_t frameWidth = 0;  ///< of the picture [pixels]
    std::uint32_t frameHeight = 0; ///< of the picture [lines]
    std::chrono::nanoseconds time{0};
    std::string settings; ///< as the text chunk of the picture: lines of "name: value"
    std::string file;     ///< name of the picture's file, without folder
};

} // namespace sim
