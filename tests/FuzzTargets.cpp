// The inputs of the fuzz targets: those that they begin with, and those that they have found.
#include <filesystem>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

#include "Targets.h"

namespace tessel::tests {
namespace {

class FuzzTarget : public ::testing::TestWithParam<fuzz::Target> {};

// An input that fails ends the process.
TEST_P(FuzzTarget, SurvivesItsCorpus) {
  int replayed = 0;
  const auto folder = std::filesystem::path(TESSEL_CORPUS) / GetParam().name;
  for (const auto& file : std::filesystem::directory_iterator(folder)) {
    std::ifstream stream(file.path(), std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(stream), {}};
    SCOPED_TRACE(file.path().filename().string());
    GetParam().entry(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    ++replayed;
  }
  EXPECT_GT(replayed, 0) << folder;
}

INSTANTIATE_TEST_SUITE_P(Each, FuzzTarget, ::testing::ValuesIn(fuzz::Targets()),
                         [](const auto& target) { return std::string(target.param.name); });

}  // namespace
}  // namespace tessel::tests
