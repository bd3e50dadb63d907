# Writes a source with the files of the page, compressed:
#
#   cmake -DOUTPUT=FILE.cpp -DGZIP=PROGRAM -DFILES=path=file;... -P Embed.cmake
#
# A file is served at its path; the ending of its name says its type.

set(type_html "text/html; charset=utf-8")
set(type_css "text/css; charset=utf-8")
set(type_js "text/javascript; charset=utf-8")
set(type_svg "image/svg+xml")

set(contents "")
set(entries "")
set(number 0)
foreach(entry IN LISTS FILES)
  string(REGEX MATCH "^([^=]+)=(.*)$" _ "${entry}")
  set(path ${CMAKE_MATCH_1})
  set(file ${CMAKE_MATCH_2})
  cmake_path(GET file EXTENSION LAST_ONLY ending)
  string(SUBSTRING ${ending} 1 -1 ending)
  execute_process(COMMAND ${GZIP} -9 -n -c ${file} OUTPUT_FILE ${OUTPUT}.gz COMMAND_ERROR_IS_FATAL ANY)
  file(READ ${OUTPUT}.gz hex HEX)
  string(LENGTH "${hex}" digits)
  math(EXPR bytes "${digits} / 2")
  string(REGEX REPLACE "(..)" "0x\\1," list "${hex}")
  string(REGEX REPLACE "(....,....,....,....,....,....,....,....,....,....,....,....,....,....,....,....,)" "\\1\n" list "${list}")
  string(APPEND contents "constexpr unsigned char FILE_${number}[] = {\n${list}};\n")
  string(APPEND entries
         "    {\"${path}\", \"${type_${ending}}\", {reinterpret_cast<const char*>(FILE_${number}), ${bytes}}},\n")
  math(EXPR number "${number} + 1")
endforeach()
file(REMOVE ${OUTPUT}.gz)

file(WRITE ${OUTPUT} "// Made by Embed.cmake.
#include \"PageFiles.h\"

namespace vorn_web {
namespace {

${contents}
}  // namespace

std::span<const PageFile> PageFiles() {
  static const PageFile files[] = {
${entries}  };
  return files;
}

}  // namespace vorn_web
")
