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
  string(REGEX REPLACE "(..)" "0x\\1," bytes "${bytes}")
  string(REPEAT "0x..," 16 row)
  string(REGEX REPLACE "(${row})" "\\1\n" bytes "${bytes}")
  # The byte at the end keeps the array of an empty file from being empty.
  string(APPEND arrays "const unsigned char content${count}[] = {\n${bytes}0};\n")
  string(APPEND entries "    {\"${name}\", textOf(content${count}, sizeof content${count} - 1)},\n")
  math(EXPR count "${count} + 1")
endforeach()
file(WRITE ${OUTPUT} "#include \"tools/collector/EmbeddedFiles.h\"

namespace kx::collector {

namespace {

${arrays}
std::string_view textOf(const unsigned char *bytes, std::size_t size) {
  return {reinterpret_cast<const char *>(bytes), size};
}

}  // namespace

const std::vector<EmbeddedFile> &embeddedFiles() {
  static const std::vector<EmbeddedFile> files = {
${entries}  };
  return files;
}

}  // namespace kx::collector
")
