#include "Config/Profile.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

namespace {

constexpr char KEY_ENDS[] = "=| ^\t";

bool IsSpace(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

const char* SkipSpace(const char* text) {
  while (IsSpace(*text)) ++text;
  return text;
}

bool StartsWith(const char* text, const std::string& prefix) {
  return std::strncmp(text, prefix.c_str(), prefix.size()) == 0;
}

bool HasKey(const char* line, const char* key) {
  const std::size_t length = std::strcspn(line, KEY_ENDS);
  return length == std::strlen(key) && std::strncmp(line, key, length) == 0;
}

std::string Trimmed(const std::string& text) {
  std::size_t begin = 0;
  std::size_t end = text.size();
  while (begin < end && IsSpace(text[begin])) ++begin;
  while (end > begin && IsSpace(text[end - 1])) --end;
  return text.substr(begin, end - begin);
}

void StoreValue(const char* afterEquals, char* value) {
  const std::string raw(afterEquals, std::strcspn(afterEquals, "\n"));
  if (raw.empty()) return;
  const std::string trimmed = Trimmed(raw);
  const std::string& text = trimmed.empty() ? raw : trimmed;
  std::memcpy(value, text.c_str(), text.size() + 1);
}

}  // namespace

extern "C" int GetProfileString(const char* path, const char* section, const char* key, char* value) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path, "r"), std::fclose);
  if (!file) return -1;
  const std::string header = "[" + std::string(section) + "]";
  bool inSection = false;
  char line[256];
  while (std::fgets(line, sizeof line, file.get())) {
    const char* text = SkipSpace(line);
    if (*text == '\0') continue;
    if (!inSection) {
      if (*text == '[') inSection = StartsWith(text, header);
      continue;
    }
    if (*text == '#') continue;
    if (*text == '[') return -1;
    const char* equals = std::strchr(text, '=');
    if (!equals || !HasKey(text, key)) continue;
    StoreValue(equals + 1, value);
    return 0;
  }
  return -1;
}
