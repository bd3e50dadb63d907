// The files of the page, which the build puts into the program: compressed, and never compressed again.
#pragma once

#include <span>
#include <string_view>

namespace vorn_web {

struct PageFile {
  std::string_view path;  ///< "/page.css"
  std::string_view type;  ///< "text/css; charset=utf-8"
  std::string_view gzip;  ///< the content
};

std::span<const PageFile> PageFiles();

}  // namespace vorn_web
