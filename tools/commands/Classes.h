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

// The short name of a source's class: what it delivers, the words that tell it from the plain
// source of that kind, and "push" unless it is pulled from.
//
//   ApiH264Source-dualos-cbrc-pull           h264
//   ApiH264Source-dualos-vbrc-trigger-push   h264-vbrc-trigger-push
//   ApiYuvSource-dualos-pull-fake            yuv-fake
//
// The short name of an audio device is its kind: "microphone", "speaker".
//
// Empty for all other classes.
std::string ShortName(const IClass& record);

// The class with that name, in any case, or with that short name; "-pull" may follow. Null with
// `error`, which suggests similar names.
const IClass* FindClass(const std::string& name, std::string& error);
// The same for a creatable class. Null with `error`, which names the aliases of one that is not.
const IClass* FindCreatable(const std::string& name, std::string& error);

// What an object of a class shows. An audio device is known by the name of its class, as creating
// one needs the real-time side.
struct ClassTraits {
  std::string delivery = "-";  // "push" or "pull"
  std::string kind = "-";      // what it delivers, or is
};
// REQUIRES: IsCreatable(record).
ClassTraits TraitsOf(const IClass& record);

}  // namespace tessel::tool
