/// \file
/// What the command line asks for.
#pragma once

#include <optional>
#include <string>
#include <vector>

/// What the command line asks for. Empty: it does not say.
struct tsArguments {
    std::string scenario;
    std::string workdir;
    std::string log;
    std::string summary;
    bool overview = false;
    std::string vcd;
    std::string report;
    std::vector<std::string> draw; ///< dump, picture
    std::string time;
    std::string frames;
    unsigned maxFrames = 10;
    std::string scene;
    std::string record;
    std::string replay;
    bool hardware = false;
    std::string serve; ///< "[ADDRESS:]PORT"
    bool keepServing = false;
    bool stopped = false;
    bool printRegisters = false;
    bool printRegisterTable = false;
    bool printRules = false;
    bool printScenarioKeys = false;
    std::vector<std::string> program; ///< with its arguments
};

/// Reads the command line. What is wrong with it, the help and the version are printed.
/// \param arguments set when the result is empty
/// \return the exit status when there is nothing more to do
std::optional<int> readCommandLine(int count, char** values, tsArguments& arguments);
