// Every input that ever crashed the library or the fuzz target (tests/crashers)
// takes the fuzz target's path again: PNG CRCs made right, decode, read every
// view, write back. A fault coming back shows in the sanitizer pass as a
// report naming the file's test.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "support/bytes.h"
#include "support/exercise_image.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/png_files.h"

#ifndef LMIMAGE_CRASHERS_DIR
#  define LMIMAGE_CRASHERS_DIR "tests/crashers"
#endif

namespace lumo::image {
namespace {

namespace fs = std::filesystem;

std::vector<fs::path> Crashers() {
  std::vector<fs::path> files;
  std::error_code error;
  for (const fs::directory_entry& entry : fs::directory_iterator(LMIMAGE_CRASHERS_DIR, error)) {
    if (entry.is_regular_file() && entry.path().filename() != "README.md") files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

TEST(Crashers, FolderIsFound) {
  // With a wrong path every case below would vanish without a failure.
  EXPECT_TRUE(fs::is_regular_file(fs::path(LMIMAGE_CRASHERS_DIR) / "README.md")) << LMIMAGE_CRASHERS_DIR;
}

class Crasher : public ::testing::TestWithParam<fs::path> {};

TEST_P(Crasher, DecodesWithoutFault) {
  testing::LogCapture quiet;
  const std::optional<testing::Bytes> bytes = testing::ReadFile(GetParam().string());
  ASSERT_TRUE(bytes) << GetParam();
  testing::Bytes input = *bytes;
  testing::FixPngCrcs(input.data(), input.size());
  testing::DecodeAndExercise(testing::Shared(input), input.size());
}

std::string TestName(const ::testing::TestParamInfo<fs::path>& info) {
  std::string name = info.param.filename().string();
  for (char& c : name) {
    if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
  }
  return name;
}

INSTANTIATE_TEST_SUITE_P(Files, Crasher, ::testing::ValuesIn(Crashers()), TestName);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(Crasher);

}  // namespace
}  // namespace lumo::image
