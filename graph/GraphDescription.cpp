#include "GraphDescription.h"

namespace vorn::graph {

std::string ToString(const Origin& at) {
  if (at.line == 0) return at.file;
  return at.file + ':' + std::to_string(at.line) + ':' + std::to_string(at.column);
}

std::string ToString(const Error& error) {
  const std::string where = ToString(error.at);
  return where.empty() ? error.text : where + ": " + error.text;
}

}  // namespace vorn::graph
