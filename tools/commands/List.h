// `tessel list`: the class catalogue.
#pragma once

namespace tessel::tool {

struct ListOptions {
  bool all = false;  // base classes and the host's own classes too
};

// One line a class to stdout: name, delivery, what it is, short name; in columns on a terminal,
// else separated by tabs. The exit code.
int List(const ListOptions& options);

}  // namespace tessel::tool
