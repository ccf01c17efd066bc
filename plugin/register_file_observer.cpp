// Clients' writes to the sensor's words of the register file.

#include <iostream>

#include "common/print.h"
#include "plugin/board.h"
#include "plugin/register_words.h"

namespace Varnox {

namespace {
constexpr std::uint32_t kLargestDigitalGain = 3;
}

tc3U5MGXSSensorBoard::tcRegFileObs::tcRegFileObs(tc3U5MGXSSensorBoard& board) : m_board(&board) {}

tc3U5MGXSSensorBoard::tcRegFileObs::~tcRegFileObs() = default;

void tc3U5MGXSSensorBoard::tcRegFileObs::update(tsUpdate& update) {
    print(std::cout, "tcRegFileObs::update register: ", update.address, "\n");
    if (update.kind != kUpdateWordWrite) {
        return;
    }
    int result = eSuccess;
    switch (update.address) {
    case registerWords::kExposureMode:
        result = m_board->setExposureMode(static_cast<tc3U5MGXS::teExposureMode>(update.value));
        break;
    case registerWords::kDigitalGain:
        result = update.value <= kLargestDigitalGain
                     ? m_board->setDGain(static_cast<tc3U5MGXS::teDGainCoarse>(update.value))
                     : eInvalidArgument;
        break;
    default:
        return;
    }
    if (result != eSuccess) {
        update.status = kUpdateFailed;
    }
    update.handled = true;
}

} // namespace Varnox
