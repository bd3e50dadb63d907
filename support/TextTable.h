// Rows of cells as lines of text with aligned columns.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

namespace support {

using Row = std::vector<std::string>;

/**
 * One line a row, without a line's end and without blanks at it; columns are two blanks apart. A cell that is longer
 * than `longestAligned`, a path most likely, makes its own line longer and not its column wider.
 */
inline std::vector<std::string> TextTable(const std::vector<Row>& rows,
                                          std::size_t longestAligned = std::string::npos) {
  std::vector<std::size_t> widths;
  for (const Row& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t i = 0; i < row.size(); ++i) {
      if (row[i].size() <= longestAligned) widths[i] = std::max(widths[i], row[i].size());
    }
  }
  std::vector<std::string> lines;
  for (const Row& row : rows) {
    std::string& line = lines.emplace_back();
    for (std::size_t i = 0; i < row.size(); ++i) {
      line += row[i] + std::string(std::max(widths[i], row[i].size()) - row[i].size() + 2, ' ');
    }
    line.resize(line.find_last_not_of(' ') + 1);
  }
  return lines;
}

}  // namespace support
