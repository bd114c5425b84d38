# Writes a C++ source that holds files, for a program that is to be one file itself.
#
# usage: cmake -D OUTPUT=<source> -D "FILES=<file> ..." -P EmbedFiles.cmake
separate_arguments(files UNIX_COMMAND "${FILES}")
set(arrays "")
set(entries "")
set(count 0)
foreach(file ${files})
  get_filename_component(name ${file} NAME)
  file(READ ${file} bytes HEX)
  # One text: compilers take it at once, and a minute for a list of as many numbers.
  string(REGEX REPLACE "(..)" "\\\\x\\1" bytes "${bytes}")
  string(REPEAT "." 128 row)
  string(REGEX REPLACE "(${row})" "\\1\"\n    \"" bytes "${bytes}")
  string(APPEND arrays "const char content${count}[] =\n    \"${bytes}\";\n")
  string(APPEND entries "    {\"${name}\", {content${count}, sizeof content${count} - 1}},\n")
  math(EXPR count "${count} + 1")
endforeach()
file(WRITE ${OUTPUT} "#include \"tools/collector/EmbeddedFiles.h\"

namespace kx::collector {

namespace {

${arrays}
}  // namespace

const std::vector<EmbeddedFile> &embeddedFiles() {
  static const std::vector<EmbeddedFile> files = {
${entries}  };
  return files;
}

}  // namespace kx::collector
")
