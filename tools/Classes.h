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

// The class meant by `name`: its name in any case, or a short form of it, which is the kind of a
// source and its delivery ("h264", the same as "h264-pull"; "h264-push"). Null with `error`, which
// suggests names that look alike.
const IClass* FindClass(const std::string& name, std::string& error);
// The same, for a class that has to be creatable; one that is not is refused with its aliases.
const IClass* FindCreatable(const std::string& name, std::string& error);

// What is found out by making an object of a class.
struct ClassTraits {
  std::string delivery = "-";  // "push" or "pull"
  std::string kind = "-";      // what it delivers
};
// REQUIRES: IsCreatable(record).
ClassTraits TraitsOf(const IClass& record);

}  // namespace tessel::tool
