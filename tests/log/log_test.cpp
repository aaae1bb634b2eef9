#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "lumo/log/log.h"
#include "support/log_capture.h"

namespace {

using lumo::log::Severity;

class LogTest : public ::testing::Test {
 protected:
  lumo::image::testing::LogCapture capture;
  std::vector<lumo::image::testing::LogLine>& lines = capture.lines;
};

TEST_F(LogTest, EachEntryPointReachesTheSinkWithItsSeverityAndFinishedText) {
  lumo::log::LogError(3, "bad %s at %d", "header", 12);
  lumo::log::LogWarning(4, "%u%%", 50u);
  lumo::log::Log(5, -10, "Convert From %s To %s", "R8", "A8R8G8B8");
  lumo::log::CLogError(6, "100% literal %s");  // not a format string

  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[0].channel, 3u);
  EXPECT_EQ(lines[0].severity, Severity::Error);
  EXPECT_EQ(lines[0].level, 0);
  EXPECT_EQ(lines[0].text, "bad header at 12");
  EXPECT_EQ(lines[1].severity, Severity::Warning);
  EXPECT_EQ(lines[1].text, "50%");
  EXPECT_EQ(lines[2].severity, Severity::Message);
  EXPECT_EQ(lines[2].level, -10);
  EXPECT_EQ(lines[2].text, "Convert From R8 To A8R8G8B8");
  EXPECT_EQ(lines[3].severity, Severity::Error);
  EXPECT_EQ(lines[3].text, "100% literal %s");
}

TEST_F(LogTest, LongMessagesAreNotTruncated) {
  const std::string long_text(5000, 'x');
  lumo::log::LogError(0, "%s!", long_text.c_str());
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].text, long_text + "!");
}

TEST_F(LogTest, ThrowingSinkDoesNotUnwindIntoTheCaller) {
  lumo::log::SetSink([](unsigned, Severity, int, const std::string&) { throw 1; });
  EXPECT_NO_THROW(lumo::log::LogError(0, "x"));
}

TEST_F(LogTest, EmptySinkRestoresDefaultOutputOnStderr) {
  lumo::log::SetSink({});
  testing::internal::CaptureStderr();
  lumo::log::LogError(7, "first");
  lumo::log::Log(7, 0, "second");
  lumo::log::Log(7, -10, "trace only");
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_NE(err.find("first\n"), std::string::npos);
  EXPECT_NE(err.find("second\n"), std::string::npos);
  EXPECT_EQ(err.find("trace only"), std::string::npos);
  EXPECT_TRUE(lines.empty());
}

}  // namespace
