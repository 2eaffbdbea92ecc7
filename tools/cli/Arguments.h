// How the commands read their arguments.
#pragma once

#include <functional>
#include <string>

#include "InputOptions.h"
#include "Units.h"

#include <CLI/CLI.hpp>

namespace tessel::tool {

inline constexpr int kMostCount = 1'000'000'000;
inline constexpr int kMostPixels = 16'384;  // a side; the real-time side may take less

// Refuses the command line as wrong usage: the program ends with kWrongUsage.
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

// Options "--sensor", "--once" and "--unpaced"; `unpaced_help` describes the last one.
void AddInputs(CLI::App& command, InputOptions& inputs, const std::string& unpaced_help);

}  // namespace tessel::tool
