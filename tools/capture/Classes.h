// The class catalogue as a user sees it: names, short names, what can be made of a class.
#pragma once

#include <string>
#include <vector>

#include "quill/IClass.h"

namespace tessel::tool {

using quill::base::IClass;

// Can be created without arguments, by its name alone.
bool IsCreatable(const IClass& record);
// Belongs to the host and not to a plug-in.
bool IsOfHost(const IClass& record);
// "(bool pull)", "()", …
std::string ConstructorText(const IClass& record);
std::string VersionText(const IClass& record);
// Names of the classes that bind the constructor arguments of `record`.
std::vector<std::string> AliasesOf(const IClass& record);

// What a source's class is called for short: what it delivers, the words that tell it from the
// plain source of that, and "push" unless it is pulled from.
//
//   ApiH264Source-dualos-cbrc-pull           h264
//   ApiH264Source-dualos-vbrc-trigger-push   h264-vbrc-trigger-push
//   ApiYuvSource-dualos-pull-fake            yuv-fake
//
// Devices are called by their kind: "microphone", "speaker".
//
// Empty where there is no such name.
std::string ShortName(const IClass& record);

// The class meant by `name`: its name in any case or its short name, "-pull" at the end of which
// may be said too. Null with `error`, which suggests names that look alike.
const IClass* FindClass(const std::string& name, std::string& error);
// The same, for a class that has to be creatable; one that is not is refused with its aliases.
const IClass* FindCreatable(const std::string& name, std::string& error);

// What is found out by making an object of a class; of a device by its name, as its making needs
// the real-time side.
struct ClassTraits {
  std::string delivery = "-";  // "push" or "pull"
  std::string kind = "-";      // what it delivers, or is
};
// REQUIRES: IsCreatable(record).
ClassTraits TraitsOf(const IClass& record);

}  // namespace tessel::tool
