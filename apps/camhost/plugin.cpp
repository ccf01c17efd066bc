#include "apps/camhost/plugin.h"

#include <bit>
#include <exception>
#include <filesystem>

#include <dlfcn.h>

#include "apps/camhost/errors.h"
#include "apps/camhost/file_checks.h"

namespace camhost {

namespace {

constexpr const char* kSensorType = "sensorType";
constexpr const char* kMakeSensor = "makeSensor";

/// A name without a folder would make the loader search its own path.
std::string absolutePath(const std::string& path) {
    return std::filesystem::absolute(path).lexically_normal().string();
}

void requireFile(const std::string& path) {
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (!std::filesystem::exists(status))
        throw tcFatalError(teExit::ePlugin, "plug-in " + path +
                                                " not loaded: there is no such file. Give the "
                                                "plug-in's file with --plugin.");
    if (std::filesystem::is_directory(status))
        throw tcFatalError(teExit::ePlugin, "plug-in " + path +
                                                " not loaded: it is a folder. Give the plug-in's "
                                                "file in it with --plugin.");
    if (const std::string why = notRegular(path); !why.empty())
        throw tcFatalError(teExit::ePlugin, "plug-in " + path + " not loaded: " + why +
                                                ". Give the plug-in's file with --plugin.");
}

std::string lastLoaderError() {
    const char* const text = ::dlerror();
    return text != nullptr ? text : "the loader gives no reason";
}

void* load(const std::string& path) {
    requireFile(path);
    void* const library = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr)
        throw tcFatalError(teExit::ePlugin,
                           "plug-in " + path + " not loaded: " + lastLoaderError() +
                               ". It must be a shared library for this machine, built against "
                               "this host's libraries.");
    return library;
}

} // namespace

template<typename F>
F* tcPlugin::symbol(const char* name) const {
    void* const address = ::dlsym(m_library.get(), name);
    if (address == nullptr)
        throw tcFatalError(teExit::ePlugin, "plug-in " + m_path +
                                                " not loaded: it has no function \"" + name +
                                                "\" (" + lastLoaderError() +
                                                "). Give a sensor-board plug-in with --plugin.");
    return std::bit_cast<F*>(address);
}

tcPlugin::tcPlugin(const std::string& path)
    : m_path(absolutePath(path)),
      m_library(load(m_path), [](void* library) { ::dlclose(library); }),
      m_sensorType(symbol<SensorType>(kSensorType)),
      m_makeSensor(symbol<MakeSensor>(kMakeSensor)) {}

std::unique_ptr<Varnox::tcSensorBoard> tcPlugin::makeBoard(const std::string& device) const {
    const std::string where = "board for \"" + device + "\" not constructed by " + m_path + ": ";
    std::unique_ptr<Varnox::tcSensorBoard> board;
    try {
        board.reset(m_makeSensor(device.c_str()));
    } catch (const std::exception& exception) {
        // Copied: the exception's type lives in the plug-in.
        throw tcFatalError(teExit::eBoard,
                           where + exception.what() + ". Check the device given with --spi.");
    } catch (...) {
        throw tcFatalError(teExit::eBoard, where + "it threw something that is no std::exception" +
                                               ". Check the device given with --spi.");
    }
    if (!board)
        throw tcFatalError(teExit::eBoard,
                           where + "it returned none. Check the device given with --spi.");
    return board;
}

} // namespace camhost
