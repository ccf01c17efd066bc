#include "apps/camhost/plugin_search.h"

#include <algorithm>
#include <filesystem>
#include <string_view>

#include "apps/camhost/errors.h"

namespace camhost {

namespace {

namespace fs = std::filesystem;

/// A folder, and how the names of plug-ins in it begin.
struct tsPlace {
    fs::path folder;
    std::string_view begin;
};

std::vector<tsPlace> places() {
    std::error_code error;
    const fs::path prefix = fs::read_symlink("/proc/self/exe", error).parent_path().parent_path();
    return {{prefix / HEAD_PLUGIN_DIRECTORY, ""},
            {prefix / "lib", "sensor_board_"}}; // the build folder has other libraries as well
}

std::vector<std::string> pluginsIn(const tsPlace& place) {
    std::vector<std::string> plugins;
    std::error_code error;
    for (fs::directory_iterator entry(place.folder, error), end; !error && entry != end;
         entry.increment(error)) {
        std::error_code ignored;
        if (entry->path().extension() == ".so" && entry->is_regular_file(ignored) &&
            entry->path().filename().string().starts_with(place.begin))
            plugins.push_back(entry->path().lexically_normal().string());
    }
    std::sort(plugins.begin(), plugins.end());
    return plugins;
}

} // namespace

std::vector<std::string> installedPlugins() {
    for (const tsPlace& place : places()) {
        std::vector<std::string> plugins = pluginsIn(place);
        if (!plugins.empty())
            return plugins;
    }
    return {};
}

std::string onlyPlugin() {
    const std::vector<std::string> plugins = installedPlugins();
    if (plugins.size() == 1)
        return plugins.front();
    std::string text;
    for (const std::string& plugin : plugins)
        text += (text.empty() ? "" : ", ") + plugin;
    if (plugins.empty()) {
        for (const tsPlace& place : places())
            text += (text.empty() ? "" : ", ") + place.folder.lexically_normal().string();
        throw tcFatalError(teExit::ePlugin, "no plug-in is installed: none in " + text +
                                                ". Give the plug-in's file with --plugin.");
    }
    throw tcFatalError(teExit::ePlugin,
                       "several plug-ins are installed: " + text + ". Choose one with --plugin.");
}

} // namespace camhost
