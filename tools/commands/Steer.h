// `tessel set`, `tessel key`, `tessel trigger`: steering a stream that another process runs.
#pragma once

#include <string>
#include <vector>

#include "quill/Host.h"

namespace tessel::tool {

// "h264-vbrc", "jpeg-trigger", …: what a stream delivers and how, as short names of classes have
// it.
std::string StreamKind(const quill::host::BoardStream& stream);

// Whether an element of that class is in its chain.
bool HasElement(const quill::host::BoardStream& stream, const char* name);

struct SteerOptions {
  std::string stream;                    // its number, session, or kind where that is the only one
  std::vector<std::string> assignments;  // "key=value", for `set`
};

// One change of the stream's rate control each; the exit code. Nothing is set when one of the
// assignments is wrong.
int Set(const SteerOptions& options);
int RequestKey(const SteerOptions& options);
int Trigger(const SteerOptions& options);

}  // namespace tessel::tool
