// `tessel list`: the class catalogue.
#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include <unistd.h>

#include "quill/Host.h"

#include "Classes.h"
#include "Commands.h"
#include "Console.h"

namespace tessel::tool {
namespace {

struct Line {
  std::string name;
  std::string delivery;
  std::string kind;
  std::string short_name;
};

Line Describe(const IClass& record) {
  if (IsOfHost(record)) return {record.Name(), "-", "element of the host", "-"};
  if (!IsCreatable(record))
    return {record.Name(), "-", "base class " + ConstructorText(record), "-"};
  const ClassTraits traits = TraitsOf(record);
  const std::string short_name = ShortName(record);
  return {record.Name(), traits.delivery, traits.kind, short_name.empty() ? "-" : short_name};
}

// Prints one line a class: name, delivery, what it is, short name; in columns on a terminal, else
// separated by tabs.
class ListCommand : public Command {
 public:
  explicit ListCommand(CLI::App& tool)
      : Command(tool, "list", "Show the classes that can be created",
                "Example:\n  tessel list --all | cut -f1\n") {
    _app.add_flag("--all", _all, "Base classes and the host's own classes too");
  }
  int Run() override;

 private:
  bool _all = false;
};

int ListCommand::Run() {
  std::vector<Line> lines;
  for (const IClass* record : quill::host::Classes()) {
    if (_all || IsCreatable(*record)) lines.push_back(Describe(*record));
  }
  if (lines.empty()) {
    Say("the plug-in offers no classes");
    return kFailed;
  }
  std::size_t name_width = 0;
  std::size_t kind_width = 0;
  for (const Line& line : lines) {
    name_width = std::max(name_width, line.name.size());
    kind_width = std::max(kind_width, line.kind.size());
  }
  const bool in_columns = IsTerminal(STDOUT_FILENO);
  for (const auto& [name, delivery, kind, short_name] : lines) {
    if (in_columns) {
      std::printf("%-*s  %-4s  %-*s  %s\n", static_cast<int>(name_width), name.c_str(),
                  delivery.c_str(), static_cast<int>(kind_width), kind.c_str(), short_name.c_str());
    } else {
      std::printf("%s\t%s\t%s\t%s\n", name.c_str(), delivery.c_str(), kind.c_str(),
                  short_name.c_str());
    }
  }
  return kDone;
}

}  // namespace

std::unique_ptr<Command> AddList(CLI::App& tool) { return std::make_unique<ListCommand>(tool); }

}  // namespace tessel::tool
