#pragma once

#include <histedit.h>

#include <string>

namespace vrdb {

/** The lines typed in this and earlier sessions, kept in a file of plain lines that only its user can read. */
class LineHistory {
 public:
  LineHistory();
  ~LineHistory();
  LineHistory(const LineHistory&) = delete;
  LineHistory& operator=(const LineHistory&) = delete;

  /** Remembers a line, in the file at once: sessions beside this one add theirs. */
  void Add(const std::string& line);

  void AttachTo(EditLine* editor);

 private:
  History* const history;
  const std::string file;  // empty: nowhere to keep it
};

/** $XDG_STATE_HOME/vrdb/history, or the same under ~/.local/state; empty without a home. */
std::string HistoryFile();

}  // namespace vrdb
