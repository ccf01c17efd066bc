/// \file
/// Settings as the program tells them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace sim {

/// A setting that was asked for.
struct tsSetting {
    std::string name;
    std::string asked;
    std::string applied;   ///< or what else became of it
    std::string limitedBy; ///< empty: nothing is told
};

/// \param printed what the program printed; its lines "NAME: asked A, applied B (...)",
///                "NAME: asked A, applied B, limited by C (...)" and "NAME: asked A, taken ..."
///                count
/// \return in the order of the lines
[[nodiscard]] std::vector<tsSetting> settingsIn(std::string_view printed);

} // namespace sim
