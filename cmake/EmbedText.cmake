# Text files as constants of the program, which then needs no file beside it. A change of a file configures anew.

# csrt_embed_literal(<result> <file>): the file as a C++ raw string.
function(csrt_embed_literal result file)
  file(READ ${file} content)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${file})
  set(${result} "R\"embedded(${content})embedded\"" PARENT_SCOPE)
endfunction()

# csrt_embed_texts(<output.cpp> <header> TEXTS <variable> <file>... TABLES <variable> <folder>...): each file becomes a
# `const char* const`, each folder's *.json an `EmbeddedText[]` of names and texts with an empty entry behind the last.
function(csrt_embed_texts output header)
  cmake_parse_arguments(PARSE_ARGV 2 arg "" "" "TEXTS;TABLES")
  set(code "// Made by the build.\n#include \"${header}\"\n\nnamespace host {\n\n")
  while(arg_TEXTS)
    list(POP_FRONT arg_TEXTS variable file)
    csrt_embed_literal(literal ${file})
    string(APPEND code "const char* const ${variable} = ${literal};\n\n")
  endwhile()
  while(arg_TABLES)
    list(POP_FRONT arg_TABLES variable folder)
    file(GLOB files CONFIGURE_DEPENDS ${folder}/*.json)
    list(SORT files)
    string(APPEND code "const EmbeddedText ${variable}[] = {\n")
    foreach(file ${files})
      csrt_embed_literal(literal ${file})
      get_filename_component(name ${file} NAME_WE)
      string(APPEND code "    {\"${name}\", ${literal}},\n")
    endforeach()
    string(APPEND code "    {nullptr, nullptr}};\n\n")
  endwhile()
  string(APPEND code "}  // namespace host\n")
  file(GENERATE OUTPUT ${output} CONTENT "${code}")
endfunction()
