#include "apps/camhost/exit_status.h"

namespace camhost {

namespace {

constexpr const char* kInitialize = "init";

} // namespace

teExit statusOfFailed(const std::string& command) {
    return command == kInitialize ? teExit::eInitialize : teExit::eCommand;
}

void tcScriptStatus::failed(teExit status) {
    if (m_status == teExit::eSuccess)
        m_status = status;
}

} // namespace camhost
