// Names and keywords of objects.
#pragma once

#include <string>
#include <vector>

#include "quill/Visibility.h"

namespace quill::base {

// The name of an object and its place among its siblings.
class QUILL_PUBLIC object_name {
 public:
  object_name();
  unsigned ID() const;  // unique in the process, never 0
  int Order() const;    // position under its owner, -1 without one
  void Name(const char* name);
  const char* Name() const { return _name.c_str(); }

 private:
  friend class ObjectList;
  std::string _name;
  unsigned _id;
  int _order = -1;
};

// Words that an object can be found by, besides its name.
class QUILL_PUBLIC object_keywords {
 public:
  void Name(const char* keyword);  // adds a keyword once
  bool HasKeyword(const char* keyword) const;
  const std::vector<std::string>& Keywords() const { return _keywords; }

 private:
  std::vector<std::string> _keywords;
};

// A name unique in the process: `prefix`, then `separator` unless that is 0, then a number.
QUILL_PUBLIC std::string UniqueString();
QUILL_PUBLIC std::string UniqueString(const char* prefix, char separator);

}  // namespace quill::base
