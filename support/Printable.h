// Text from somewhere else, made safe to print.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

#include "support/Format.h"

namespace support {

/** How many bytes the UTF-8 character at the start of a text has; 0: it is none. */
inline std::size_t CharacterBytes(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  if (text.empty()) return 0;
  if (byte(0) < 0x80) return 1;
  const std::size_t bytes = byte(0) >= 0xF0 ? 4 : byte(0) >= 0xE0 ? 3 : 2;
  if (byte(0) < 0xC2 || byte(0) > 0xF4 || text.size() < bytes) return 0;
  for (std::size_t i = 1; i < bytes; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
  }
  return bytes;
}

/** Whether a terminal shows the character, rather than obeys it: C0, DEL, C1, and what turns the direction of text. */
inline bool IsShown(std::string_view character) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(character[i]); };
  if (character.size() == 1) return byte(0) >= 0x20 && byte(0) != 0x7F;
  if (character.size() == 2) return byte(0) != 0xC2 || byte(1) >= 0xA0;
  if (character.size() != 3 || byte(0) != 0xE2) return true;
  const bool turns = (byte(1) == 0x80 && byte(2) >= 0xAA && byte(2) <= 0xAE) || (byte(1) == 0x81 && byte(2) >= 0xA6);
  return !turns;
}

/**
 * Names, replies and log lines of another process are data: nothing in them may move a terminal's cursor or set its
 * title. Bytes that a terminal would obey, and those that are no UTF-8, are written as \xNN; those in `kept` stay.
 */
inline std::string Printable(std::string_view text, std::string_view kept = "") {
  std::string shown;
  while (!text.empty()) {
    const std::size_t bytes = CharacterBytes(text);
    const auto character = text.substr(0, std::max<std::size_t>(bytes, 1));
    const bool isKept = character.size() == 1 && kept.find(character[0]) != kept.npos;
    if (isKept || (bytes > 0 && IsShown(character))) {
      shown += character;
    } else {
      for (const char c : character) shown += Format("\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(c)));
    }
    text.remove_prefix(character.size());
  }
  return shown;
}

/** The same for a text of several lines. */
inline std::string PrintableLines(std::string_view text) { return Printable(text, "\n\t"); }

}  // namespace support
