// Log lines and timers.
#include "platform/log.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "platform/timer.h"

namespace {

constexpr char kLogSource[] = "log_test";

// Redirects standard error into a temporary file for its lifetime.
class StderrCapture {
 public:
  StderrCapture() : file_(tmpfile()), saved_(dup(STDERR_FILENO)) {
    fflush(stderr);
    dup2(fileno(file_), STDERR_FILENO);
  }
  ~StderrCapture() {
    restore();
    fclose(file_);
  }
  // Restores standard error and returns what was written to it.
  std::string text() {
    restore();
    std::string out;
    rewind(file_);
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, file_)) > 0) out.append(buf, n);
    return out;
  }

 private:
  void restore() {
    if (saved_ < 0) return;
    dup2(saved_, STDERR_FILENO);
    close(saved_);
    saved_ = -1;
  }
  FILE* file_;
  int saved_;
};

class Log : public testing::Test {
 protected:
  void SetUp() override { saved_ = g_iDmsLogLevel.load(); }
  void TearDown() override { g_iDmsLogLevel = saved_; }

 private:
  int saved_ = 6;
};

TEST_F(Log, LinesAboveThresholdAreNotWrittenNorTheirArgumentsEvaluated) {
  struct Case {
    int threshold;
    int level;
    bool written;
  };
  for (Case c :
       {Case{6, kLogTrace, false}, Case{6, kLogEvent, false}, Case{6, kLogSummary, true},
        Case{6, kLogFailure, true}, Case{8, kLogTrace, true}, Case{0, kLogFailure, false}}) {
    SCOPED_TRACE(testing::Message() << "threshold " << c.threshold << " level " << c.level);
    g_iDmsLogLevel = c.threshold;
    int evaluated = 0;
    StderrCapture capture;
    DMS_LOG(c.level, "value %d", ++evaluated);
    std::string text = capture.text();
    EXPECT_EQ(evaluated, c.written ? 1 : 0);
    EXPECT_EQ(text.empty(), !c.written) << text;
  }

  // Called directly, the writer applies the threshold too.
  g_iDmsLogLevel = kLogSummary;
  StderrCapture capture;
  ProcUserLog(kLogSource, __LINE__, __func__, kLogTrace, 0, "hidden");
  EXPECT_EQ(capture.text(), "");
}

TEST_F(Log, LineNamesItsPlaceAndEndsInExactlyOneNewline) {
  g_iDmsLogLevel = kLogTrace;
  for (const char* message : {"plain", "own end\n", "two ends\n\n", "crlf\r\n"}) {
    SCOPED_TRACE(message);
    StderrCapture capture;
    const int line = __LINE__ + 1;
    DMS_LOG(kLogEvent, "said %s", message);
    std::string text = capture.text();
    ASSERT_GE(text.size(), 2u);
    EXPECT_EQ(text.back(), '\n');
    EXPECT_NE(text[text.size() - 2], '\n');
    EXPECT_EQ(text.find('\n'), text.size() - 1);
    EXPECT_NE(text.find("log_test:" + std::to_string(line) + " TestBody: said "), std::string::npos)
        << text;
    EXPECT_NE(text.find("[7]"), std::string::npos) << text;
  }
}

TEST(Timer, MadeTimerIsOpenDescriptorUntilKilled) {
  uint32_t timer = EXTRA_ADD_TIMER(60);
  ASSERT_NE(timer, 0u);
  int fd = static_cast<int>(timer);
  int flags = fcntl(fd, F_GETFD);
  ASSERT_NE(flags, -1);
  EXPECT_TRUE(flags & FD_CLOEXEC);
  pollfd p{fd, POLLIN, 0};
  EXPECT_EQ(poll(&p, 1, 0), 0);  // a minute away

  EXTRA_KILL_TIMER(timer);
  errno = 0;
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);
  EXPECT_EQ(errno, EBADF);
}

}  // namespace
