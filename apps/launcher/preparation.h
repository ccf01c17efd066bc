/// \file
/// Files, folders and orders of a run, before its program starts.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "apps/launcher/child.h"
#include "apps/launcher/command_line.h"
#include "apps/launcher/files.h"
#include "sim/pictures/frame_writer.h"
#include "sim/virtual_head.h"

/// Everything that a run needs. What the program's processes leave for the launcher lies in a
/// folder that goes with the object.
class tcPreparation {
public:
    /// Whatever is wrong with scenario, scene, files and folders is said here, before the program
    /// starts. Files of an earlier run, which would be taken for this one's, are removed.
    /// \throws tcUsageError, std::runtime_error
    explicit tcPreparation(const tsArguments& arguments);

    /// \return the program's working directory
    [[nodiscard]] const std::filesystem::path& workdir() const { return m_workdir; }
    [[nodiscard]] const tsOrders& orders() const { return m_orders; }
    /// \return where the program's processes leave what the head saw
    [[nodiscard]] const std::filesystem::path& leftovers() const { return m_temporary.path(); }
    /// \return makes the pictures; empty when none are asked for
    [[nodiscard]] std::optional<sim::tcFrameWriter>& pictures() { return m_pictures; }

private:
    [[nodiscard]] std::filesystem::path layOutWorkdir(const std::string& asked) const;
    [[nodiscard]] tsOrders ordersFor(const tsArguments& arguments) const;

    std::vector<sim::tsReplacedFile> m_replaced;
    std::optional<sim::tcFrameWriter> m_pictures;
    tcTemporaryFolder m_temporary;
    std::filesystem::path m_workdir;
    tsOrders m_orders;
};

/// \return whether anything is made of the head's events afterwards
bool wantsTrace(const tsArguments& arguments);
