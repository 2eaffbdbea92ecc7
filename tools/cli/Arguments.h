// What the commands' arguments have in common.
#pragma once

#include <functional>
#include <string>

#include "Units.h"

#include <CLI/CLI.hpp>

namespace tessel::tool {

inline constexpr int kMostCount = 1'000'000'000;
inline constexpr int kMostPixels = 16'384;  // a side; the real-time side may take less

// Ends the reading of the command line with wrong usage.
[[noreturn]] void Refuse(const std::string& option, const std::string& reason);

using TextCallback = std::function<void(const std::string&)>;
// An option whose text is read by `read`, which refuses with Refuse().
CLI::Option* AddText(CLI::App& command, const std::string& names, const std::string& type,
                     const std::string& help, const TextCallback& read);

// A whole number.
template <typename Number>
void AddWhole(CLI::App& command, const std::string& name, int least, int most, Number& into,
              const std::string& help) {
  AddText(command, name, "N", help, [name, least, most, &into](const std::string& text) {
    int value = 0;
    std::string error;
    if (!ParseWhole(text, least, most, value, error)) Refuse(name, error);
    into = value;
  });
}

// The command then runs with the real-time side that listens there.
void AddRtos(CLI::App& command, std::string& socket);
// The same, for a command that starts none of its own.
void AddRunningRtos(CLI::App& command, std::string& socket);
// An own real-time side then has the audio devices that are described there.
void AddBoard(CLI::App& command, std::string& board);
// False with `error` when there is a description and it would go unheard: the real-time side runs
// already.
// REQUIRES: the host has its options.
[[nodiscard]] bool CheckBoard(std::string& error);

}  // namespace tessel::tool
