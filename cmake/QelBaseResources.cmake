# qelbase_add_resources(TARGET app.rc... [DEPENDS file...])
#
# Compiles resource scripts (UTF-8) with llvm-rc and puts them into the target, where LoadStringW,
# FindResourceW and the version calls of the library find them. Name the files that the scripts
# include after DEPENDS. The resources are the descriptor of an ELF note of the owner "QelBase", type
# 0x52, in the section ".note.qelbase.resources": loaded with the module, kept by strip.
function(qelbase_add_resources target)
  cmake_parse_arguments(arg "" "" "DEPENDS" ${ARGN})
  find_program(QELBASE_LLVM_RC
               NAMES llvm-rc llvm-rc-19 llvm-rc-18 llvm-rc-17 llvm-rc-16 llvm-rc-15 llvm-rc-14)
  if(NOT QELBASE_LLVM_RC)
    message(FATAL_ERROR "qelbase_add_resources: llvm-rc not found (Debian package llvm)")
  endif()
  list(TRANSFORM arg_DEPENDS PREPEND "${CMAKE_CURRENT_SOURCE_DIR}/" REGEX "^[^/]")
  foreach(script ${arg_UNPARSED_ARGUMENTS})
    get_filename_component(script "${script}" ABSOLUTE)
    get_filename_component(folder "${script}" DIRECTORY)
    # Named without its folder: llvm-rc takes "/check/app.rc" for its own option /c.
    get_filename_component(file "${script}" NAME)
    get_filename_component(name "${script}" NAME_WE)
    set(resources "${CMAKE_CURRENT_BINARY_DIR}/${target}.${name}.res")
    set(source "${CMAKE_CURRENT_BINARY_DIR}/${target}.${name}.resources.cpp")
    add_custom_command(
      OUTPUT "${resources}"
      COMMAND "${QELBASE_LLVM_RC}" /C 65001 /FO "${resources}" "${file}"
      WORKING_DIRECTORY "${folder}"
      DEPENDS "${script}" ${arg_DEPENDS}
      COMMENT "Compiling resources ${name}.rc"
      VERBATIM)
    file(CONFIGURE OUTPUT "${source}" @ONLY CONTENT [=[
__asm__(
    ".pushsection .note.qelbase.resources, \"a\", %note\n"
    ".balign 4\n"
    ".long 8, 2f - 1f, 0x52\n"
    ".asciz \"QelBase\"\n"
    "1: .incbin \"@resources@\"\n"
    "2: .balign 4\n"
    ".popsection\n");
]=])
    set_source_files_properties("${source}" PROPERTIES OBJECT_DEPENDS "${resources}")
    target_sources(${target} PRIVATE "${source}")
  endforeach()
endfunction()
