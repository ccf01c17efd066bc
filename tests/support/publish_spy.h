/// \file
/// Sees the words that a board publishes in the register file, in the order of their publication.
#pragma once

#include <cstdint>
#include <functional>

/// Called with every `tcRegisterFile::update_word` of the code under test, before it is carried
/// out. Empty: nobody looks.
void setPublishSpy(std::function<void(std::uint32_t address, std::uint32_t value)> spy);
