#include "tlogging.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#define PRINT(level, ...) _tlogging_print(level, "f.cpp", 7, "Func", __VA_ARGS__)

namespace {

const int OPTIONS_AT_START = _tlogging_enable_options(0), LEVEL_AT_START = _tlogging_set_level(4);
const std::string FOLDER = testing::TempDir() + "tlogging_test." + std::to_string(getpid()) + "/";
const std::string POSITION = " (f.cpp:7 Func)";
using Strings = std::vector<std::string>;

struct Logging : testing::Test {
  Logging() { std::filesystem::create_directory(FOLDER); }
  ~Logging() override {
    _tlogging_set_file(nullptr);
    _tlogging_enable_options(OPTIONS_AT_START);
    std::filesystem::remove_all(FOLDER);
  }
  static int LogTo(const char* name) { return _tlogging_set_file((FOLDER + name).c_str()); }
  static Strings Logged(const char* name) { return Texts(std::ifstream(FOLDER + name)); }
  static Strings Texts(std::istream&& lines) {
    Strings texts;
    for (std::string line; std::getline(lines, line); texts.push_back(line))
      for (int i = 0; i < 4; ++i) line.erase(0, line.find(' ') + 1);  // date, time, thread id and name
    return texts;
  }
};

TEST_F(Logging, DropsWhatIsAboveTheLevel) {
  EXPECT_EQ(LEVEL_AT_START, 4);
  LogTo("log");
  Strings expected;
  for (int level = -1; level <= 7; ++level) {
    _tlogging_set_level(level);
    for (int i = 0; i < 7; ++i) {
      const bool kept = std::min(i + 1, 6) <= level;
      EXPECT_EQ(PRINT("FEWIDV?"[i], "at %d", level), kept ? 4 : 0);
      if (kept) expected.push_back("FEWIDVV"[i] + (" at " + std::to_string(level)));
    }
  }
  EXPECT_EQ(_tlogging_set_level(4), 7);
  EXPECT_EQ(Logged("log"), expected);
}

TEST_F(Logging, SaysWhenWhoWhatAndWhere) {
  setenv("TZ", "Test-5:30", 1);
  tzset();
  pthread_setname_np(pthread_self(), "RouteA");
  const time_t before = time(nullptr);
  LogTo("log");
  _tlogging_disable_options(TLOGGING_NO_POSITION);
  PRINT('E', "%s\nlines\n\n", "two");
  std::string log;
  std::getline(std::ifstream(FOLDER + "log"), log, '\0');
  tm local{};
  const std::string afterMicros = strptime(log.c_str(), "%F %T.", &local) + 6;
  EXPECT_EQ(afterMicros, " " + std::to_string(gettid()) + " RouteA E two\nlines" + POSITION + "\n");
  EXPECT_GE(timegm(&local) - (5 * 60 + 30) * 60, before) << log;
}

TEST_F(Logging, OptionsChooseOutputsAndTerminalsGetColour) {
  EXPECT_EQ(OPTIONS_AT_START, TLOGGING_NO_POSITION);
  const int errorBefore = dup(STDERR_FILENO);
  int master, slave;
  ASSERT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
  dup2(slave, STDERR_FILENO);
  for (int i = 0; i < 8; ++i) {
    setenv("NO_COLOR", i & 4 ? "1" : "", 1);
    EXPECT_EQ(_tlogging_enable_options(i & 3), TLOGGING_NO_POSITION | (i & 3));
    testing::internal::CaptureStdout();
    errno = 0;
    EXPECT_EQ(PRINT('E', "text"), i & 3 ? 4 : 0);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(Texts(std::istringstream(testing::internal::GetCapturedStdout())), Strings(i & 1, "E text"));
    dprintf(slave, "|");
    std::string seen;
    for (char c = 0; c != '|'; seen += c) ASSERT_EQ(read(master, &c, 1), 1);
    const char* line = i & 4 ? "E text\r" : "\033[31mE\033[0m text\r";
    EXPECT_EQ(Texts(std::istringstream(seen)).front(), i & 2 ? line : "|");
    EXPECT_EQ(_tlogging_disable_options(i & 3), TLOGGING_NO_POSITION);
  }
  dup2(errorBefore, STDERR_FILENO);
}

TEST_F(Logging, FileIsAppendedToReplacedAndSwitchedOff) {
  for (const char* name : {"a", "a", "b", "missing/c"}) {
    EXPECT_EQ(LogTo(name), *name == 'm' ? -ENOENT : 0);
    PRINT('I', "%s", name);
  }
  LogTo("b");
  EXPECT_NE(std::system(("ls -l /proc/self/fd | grep -q " + FOLDER).c_str()), 0) << "a child inherits it";
  EXPECT_EQ(_tlogging_set_file(nullptr), 0);
  EXPECT_EQ(PRINT('I', "nowhere"), 0);
  EXPECT_EQ(Logged("a"), Strings(2, "I a"));
  EXPECT_EQ(Logged("b"), Strings(1, "I b"));
}

TEST_F(Logging, KeepsALineLongerThanAnyBufferWhole) {
  LogTo("log");
  _tlogging_disable_options(TLOGGING_NO_POSITION);
  Strings expected;
  for (int length = 900; length < 3'000'000; length += length < 1100 ? 1 : length) {
    expected.push_back("I " + std::string(length, 'x') + POSITION);
    EXPECT_EQ(PRINT('I', "%s", std::string(length, 'x').c_str()), length);
  }
  EXPECT_EQ(Logged("log"), expected);
}

// At its worst: a pipe that takes long lines in pieces, signals that break writes off, and replacements whose old
// descriptor goes at once to somebody else.
TEST_F(Logging, LinesOfThreadsStayWholeWhileTheFileIsReplaced) {
  struct sigaction interrupt {};
  interrupt.sa_handler = [](int) {};
  sigaction(SIGUSR1, &interrupt, nullptr);
  mkfifo((FOLDER + "pipe").c_str(), 0600);
  Strings texts;
  std::thread reader([&texts] { texts = Logged("pipe"); }), writers[3];
  LogTo("pipe");
  std::atomic<int> crossings{0}, last{0};
  int printed[3] = {}, seen[3] = {}, decoy = -1;
  const auto text = [](int i, int n) { return std::to_string(i) + std::string(n % 9 * 9999, 'a' + n % 26); };
  for (int i = 0; i < 3; ++i)
    writers[i] = std::thread([&, i] {
      for (; crossings < 300; crossings += last.exchange(i) != i) PRINT('I', "%s", text(i, printed[i]++).c_str());
    });
  while (crossings < 300) {
    for (std::thread& writer : writers) pthread_kill(writer.native_handle(), SIGUSR1);
    LogTo("pipe");
    close(std::exchange(decoy, open((FOLDER + "decoy").c_str(), O_CREAT | O_WRONLY, 0600)));
  }
  for (std::thread& writer : writers) writer.join();
  _tlogging_set_file(nullptr);
  reader.join();
  for (const std::string& line : texts) {
    const int i = std::clamp(line[2] - '0', 0, 2);
    ASSERT_EQ(line, "I " + text(i, seen[i]++));
  }
  EXPECT_TRUE(std::equal(printed, printed + 3, seen));
  EXPECT_EQ(std::filesystem::file_size(FOLDER + "decoy"), 0U);
}

}  // namespace
