/**
 * Log lines: one call a line, filtered first, written whole.
 *
 *     _tlogging_print('I', __FILE__, __LINE__, __func__, "%s: Started", name);
 *
 * prints, with the thread's id and name:
 *
 *     2025-03-14 15:09:26.535897 4711 RouteA I RouteA: Started (src/main.c:12 main)
 *
 * Threads: every function may be called from any thread at any time, but not from a signal handler. Lines of several
 * threads never mix.
 * Real time: a line that the level drops costs one load and one comparison. A line that is printed formats into the
 * stack (a long one allocates) and makes one write() for each place it goes to, where it waits for its turn.
 * Printing leaves errno alone. A line that a place does not take (a full disk, a closed pipe) is lost there.
 */
#ifndef TLOGGING_H
#define TLOGGING_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

#ifndef TLOGGING_API
#define TLOGGING_API __attribute__((visibility("default")))
#endif

/**
 * Option bits. On an output that is a terminal the level has a colour, unless NO_COLOR is set in the environment when
 * the output is switched on.
 */
enum {
  TLOGGING_STDOUT = 0x1,
  TLOGGING_STDERR = 0x2,
  TLOGGING_NO_POSITION = 0x4000, /**< leave file, line and function out of the lines */
};

/**
 * Prints one line: time, thread, level, text, and where it came from unless TLOGGING_NO_POSITION is set. Newlines at
 * the end of the text are not needed, and dropped. A line is never cut; only one that finds no memory ends in "...".
 *
 * @param level 'F' fatal (1), 'E' error (2), 'W' warning (3), 'I' information (4), 'D' debugging (5), 'V' verbose (6).
 *        A line is dropped when its number is above the level set. A letter that is none of these counts as 'V'.
 * @return the length of the text, 0 when the line was dropped or no output is on, negative when the text could not be
 *         formatted (the line shows the bare format then) or found no memory.
 */
TLOGGING_API int _tlogging_print(char level, const char* file, int line, const char* func, const char* format, ...)
    __attribute__((format(printf, 5, 6)));

/** What _tlogging_recent() keeps. */
enum {
  TLOGGING_RECENT_LINES = 200,
  TLOGGING_RECENT_BYTES = 312, /**< of a line; a longer one is cut there, and ends in "..." */
};

/**
 * Copies the last lines that the level let pass, the oldest first, whether an output was on or not. Each ends with a
 * newline; there is no NUL. Where not all fit the oldest are left out.
 *
 * @param text room for `size` bytes: TLOGGING_RECENT_LINES * TLOGGING_RECENT_BYTES hold all. @return bytes copied.
 */
TLOGGING_API size_t _tlogging_recent(char* text, size_t size);

/** Sets the level: 0 prints nothing, 6 everything. At the start it is 4. @return the level before. */
TLOGGING_API int _tlogging_set_level(int level);

/**
 * Appends all lines to a file as well, which is created where it is missing.
 *
 * @param path null: no file. @return 0, or a negative errno when it could not be opened; then there is no file either.
 */
TLOGGING_API int _tlogging_set_file(const char* path);

/**
 * Switches option bits on or off; the others stay. At the start only TLOGGING_NO_POSITION is on. A line that is on its
 * way goes out first: nothing comes to an output after it was switched off.
 *
 * @return the bits now.
 */
TLOGGING_API int _tlogging_enable_options(unsigned bits);
TLOGGING_API int _tlogging_disable_options(unsigned bits);

#ifdef __cplusplus
}
#endif

#endif
