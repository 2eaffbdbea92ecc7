// Runs the programs as a user does.
#pragma once

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <sstream>
#include <string>
#include <utility>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Fixture.h"

namespace tessel::tests {

// The programs run in a folder of the test's own. Their standard output and standard error are the
// files "out" and "err" there.
class ToolTest : public ::testing::Test {
 protected:
  ToolTest() { std::filesystem::create_directories(_folder); }
  ~ToolTest() override {
    if (_program != nullptr) kill(std::stoi(Text("pid")), SIGKILL);
    if (_program != nullptr) End();
    std::filesystem::remove_all(_folder);
  }
  // One program may run meanwhile.
  void Begin(const std::string& line) { _program = Open("echo $$ >pid; exec " + line); }
  int End() { return Join(std::exchange(_program, nullptr)); }
  // The exit code of the tool. Tries again when a busy machine has let a command's second pass.
  int Run(const std::string& words) {
    int exit_code = Join(Open("exec " TESSEL_TOOL " " + words));
    for (int i = 0; i < 2 && Text("err").find(": no answer within") != std::string::npos; ++i) {
      exit_code = Join(Open("exec " TESSEL_TOOL " " + words));
    }
    return exit_code;
  }
  std::string Text(const std::string& name) const {
    std::ostringstream text;
    text << std::ifstream(_folder + name).rdbuf();
    return text.str();
  }
  void WaitForFile(const std::string& name) const {
    ASSERT_TRUE(Eventually([&] { return std::filesystem::exists(_folder + name); }));
  }
  // Runs the tool with `head`, `words` and `more`. `text` is a part of what it prints. A capture
  // whose words name no output must leave none.
  struct Row {
    const char* words;
    int exit_code;
    const char* text;
  };
  void Expect(std::initializer_list<Row> rows, const std::string& more = "",
              const std::string& head = "") {
    for (const auto& [row, exit_code, text] : rows) {
      const std::string words = head + row + more;
      const bool needs_output = words.starts_with("capture") && words.find("-o ") == words.npos;
      EXPECT_EQ(Run(words + (needs_output ? " -o a.mp4" : "")), exit_code) << words;
      const std::string said = Text("out") + Text("err");
      EXPECT_NE(said.find(text), said.npos) << words << "\n" << said;
      EXPECT_FALSE(std::filesystem::exists(_folder + "a.mp4")) << words;
    }
  }

 private:
  std::FILE* Open(const std::string& line) const {
    return popen(("cd " + _folder + "; " + line + " >out 2>err").c_str(), "r");
  }
  static int Join(std::FILE* program) {
    const int status = pclose(program);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 protected:
  const std::string _folder = ::testing::TempDir() + "tool-" + std::to_string(getpid()) + "/";

 private:
  std::FILE* _program = nullptr;
};

}  // namespace tessel::tests
