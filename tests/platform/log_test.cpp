// Log lines: where they come from, their shape and the threshold.
#include "platform/log.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

namespace {

constexpr char kLogSource[] = "log_test";

// What `write` sends to standard error.
template <class F>
std::string stderrOf(F write) {
  FILE* file = tmpfile();
  int saved = dup(STDERR_FILENO);
  dup2(fileno(file), STDERR_FILENO);
  write();
  dup2(saved, STDERR_FILENO);
  close(saved);
  std::string text(lseek(fileno(file), 0, SEEK_END), '\0');
  rewind(file);
  text.resize(fread(text.data(), 1, text.size(), file));
  fclose(file);
  return text;
}

class Log : public testing::Test {
 protected:
  void SetUp() override { saved_ = g_iDmsLogLevel.load(); }
  void TearDown() override { g_iDmsLogLevel = saved_; }
  int saved_ = 6;
};

TEST_F(Log, LinesAboveThresholdAreNotWrittenNorTheirArgumentsEvaluated) {
  struct Case {
    int threshold, level;
    bool written;
  };
  for (Case c : {Case{6, kLogTrace, false}, Case{6, kLogEvent, false}, Case{6, kLogSummary, true},
                 Case{8, kLogTrace, true}, Case{0, kLogFailure, false}}) {
    g_iDmsLogLevel = c.threshold;
    int evaluated = 0;
    std::string text = stderrOf([&] { DMS_LOG(c.level, "value %d", ++evaluated); });
    EXPECT_EQ(evaluated, c.written ? 1 : 0) << c.threshold << " " << c.level;
    EXPECT_EQ(text.empty(), !c.written) << c.threshold << " " << c.level << ": " << text;
  }
  // Called directly, the writer applies the threshold too.
  g_iDmsLogLevel = kLogSummary;
  EXPECT_EQ(stderrOf([] { ProcUserLog(kLogSource, 1, "f", kLogTrace, 0, "hidden"); }), "");
}

TEST_F(Log, LineNamesItsPlaceAndEndsInExactlyOneNewline) {
  g_iDmsLogLevel = kLogTrace;
  for (const char* message : {"plain", "own end\n", "two ends\n\n", "crlf\r\n"}) {
    const int line = __LINE__ + 1;
    std::string text = stderrOf([&] { DMS_LOG(kLogEvent, "said %s", message); });
    EXPECT_EQ(text.find('\n'), text.size() - 1) << text;
    EXPECT_EQ(text.find('\r'), std::string::npos) << text;
    EXPECT_NE(text.find("[7] log_test:" + std::to_string(line) + " operator(): said "),
              std::string::npos)
        << text;
  }
}

}  // namespace
