// The reader of the configuration file, and its ways that files rely on.
#include "Config/Profile.h"

#include "testkit/RouteTest.h"

const std::string LONG(250, 'x');

const struct {
  const char* what;
  std::string file;
  int ret = -1;
  std::string value = "old", key = "key";
} CASES[] = {
    {"blanks around everything", "  [config]\n\t key = a value \t \n", 0, "a value"},
    {"CRLF", "[config]\r\nkey=5\r\n", 0, "5"},
    {"no newline at the end", "[config]\nkey=5", 0, "5"},
    {"text after the header", "[config] extra\nkey=5\n", 0, "5"},
    {"before the section", "key=5\n[config]\n"},
    {"in other sections, too", "[ config]\nkey=0\n[configs]\nkey=1\n[config]\nkey=2\n", 0, "2"},
    {"in a repetition", "[config]\n[other]\n[config]\nkey=1\n"},
    {"comment lines", "#[config]\n[config]\n  #key=1\nkey=2\n", 0, "2"},
    {"a comment behind", "[config]\nkey=2 # two\n", 0, "2 # two"},
    {"the first of two", "[config]\nkey=1\nkey=2\n", 0, "1"},
    {"other keys", "[config]\nKey=1\nkeys=1\nke=1\n"},
    {"no equals sign", "[config]\nkey\nkey 7\n"},
    {"a key that ends at a blank", "[config]\nkey word=3\n", 0, "3"},
    {"a key that ends at a tab", "[config]\nkey\tword=3\n", 0, "3"},
    {"a key that ends at |", "[config]\nkey|x=3\n", 0, "3"},
    {"a key that ends at ^", "[config]\nkey^x=3\n", 0, "3"},
    {"no key", "[config]\n=3\n", 0, "3", ""},
    {"two equals signs", "[config]\nkey=a=b\n", 0, "a=b"},
    {"nothing behind", "[config]\nkey=\n", 0, "old"},
    {"blanks alone", "[config]\nkey= \t\n", 0, " \t"},
    {"a carriage return alone", "[config]\nkey=\r\n", 0, "\r"},
    {"a line that goes on", "[config]\nkey=" + LONG + "12\nkey=3\n", 0, LONG + "1"},
    {"the rest of a longer line", "[config]\nxxxxx" + LONG + "key=3\n", 0, "3"},
    {"a key of 31 characters", "[config]\n" + LONG.substr(0, 31) + "=3\n", 0, "3", LONG.substr(0, 31)},
    {"an endless key", "[config]\n" + LONG + "\n" + LONG + "=3\nkey=4\n", 0, "4"},
};

// Red if a way of the reader changes: each row is one.
TEST(Profile, ReadsOneKey) {
  const Folder folder;
  char value[256] = "old";
  for (const auto& c : CASES) {
    const std::string path = Write(folder / "file", c.file);
    EXPECT_EQ(GetProfileString(path.c_str(), "config", c.key.c_str(), value), c.ret) << c.what;
    EXPECT_EQ(value, c.value) << c.what;
    std::snprintf(value, sizeof value, "old");
  }
  EXPECT_EQ(GetProfileString((folder / "missing").c_str(), "config", "key", value), -1);
  EXPECT_EQ(GetProfileString((folder / "").c_str(), "config", "key", value), -1);
}
