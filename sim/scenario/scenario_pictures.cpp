#include "sim/scenario/scenario_pictures.h"

#include "sim/scenario/head_options.h"
#include "sim/scenario/scenario.h"

namespace sim {

tcFrameWriter frameWriter(const std::string& scenario, const std::string& scene) {
    tsHeadOptions options;
    if (!scenario.empty()) {
        applyScenario(scenario, options);
    }
    const std::string& picture = scene.empty() ? options.scenePath : scene;
    return {picture.empty() ? tcScene::chart() : tcScene::fromPng(picture), options.defects};
}

} // namespace sim
