#include "Arguments.h"

namespace tessel::tool {

void Refuse(const std::string& option, const std::string& reason) {
  throw CLI::ValidationError(option, reason);
}

CLI::Option* AddText(CLI::App& command, const std::string& names, const std::string& type,
                     const std::string& help, const TextCallback& read) {
  return command.add_option_function<std::string>(names, read, help)->type_name(type);
}

void AddInputs(CLI::App& command, InputOptions& inputs, const std::string& unpaced_help) {
  command.add_option("--sensor", inputs.sensor, "test, a media file, or a camera as /dev/video0")
      ->type_name("INPUT")
      ->capture_default_str();
  command.add_flag("--once", inputs.once, "Play a media file once instead of over and over");
  command.add_flag("--unpaced", inputs.unpaced, unpaced_help);
}

}  // namespace tessel::tool
