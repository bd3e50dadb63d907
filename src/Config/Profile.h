// The reader of the configuration file.
#pragma once

/**
 * Reads one key of one section of an INI-style file.
 *
 * Small and literal; files in the field rely on its ways. Leading blanks of a line do not count. A section starts at a
 * line that begins with "[section]" and ends at the next line that begins with "["; only the first one of a name is
 * searched. Inside, "#" starts a comment line. A key ends at "=", a blank, a tab, "|" or "^"; the value is what follows
 * the first "=", without white space at its ends. Lines of more than 255 characters count as several.
 *
 * @param value at least 256 bytes. Keeps its content where nothing at all follows the "="; blanks alone come untrimmed.
 * @return 0, or -1 with `value` untouched: no such file, section or key.
 */
extern "C" int GetProfileString(const char* path, const char* section, const char* key, char* value);
