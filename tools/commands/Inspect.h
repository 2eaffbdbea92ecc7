// `tessel inspect`: one class in detail, found out without the real-time side unless it is a
// device.
#pragma once

#include <string>

namespace tessel::tool {

struct InspectOptions {
  std::string name;  // as FindClass() takes it
};

// Prints what is known of a class, its defaults and the description it would send. The exit code.
int Inspect(const InspectOptions& options);

}  // namespace tessel::tool
