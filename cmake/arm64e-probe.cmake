# Decides at configure time whether this machine can build a loadable arm64e slice of the phone library.
# A slice counts only when a clang >= 20 compiles a function pointer in data for arm64e and ld64.lld links it into a
# dylib whose header says cpusubtype 0x80000002 (the pointer-authentication ABI): an older clang emits arm64e
# without authentication, and today's lld either rejects authenticated pointers or writes a plain arm64 header.

# qv_probe_arm64e(SDK DEPLOYMENT_SDK_VERSION <out-enabled> <out-clang> <out-linker> <out-reason>)
function(qv_probe_arm64e sdk sdk_version out_enabled out_clang out_linker out_reason)
  set(${out_enabled} OFF PARENT_SCOPE)
  set(${out_clang} "" PARENT_SCOPE)
  set(${out_linker} "" PARENT_SCOPE)

  find_program(QV_ARM64E_CLANG NAMES clang-30 clang-29 clang-28 clang-27 clang-26 clang-25 clang-24 clang-23 clang-22
               clang-21 clang-20 NO_CMAKE_FIND_ROOT_PATH)
  if(NOT QV_ARM64E_CLANG)
    set(${out_reason} "no clang 20 or newer to compile pointer-authenticated code" PARENT_SCOPE)
    return()
  endif()
  set(clang ${QV_ARM64E_CLANG})
  string(REGEX REPLACE ".*clang-" "" clang_major "${clang}")
  # The linker that ships with that clang, else whatever ld64.lld is on the path.
  find_program(QV_ARM64E_LINKER NAMES ld64.lld-${clang_major} ld64.lld NO_CMAKE_FIND_ROOT_PATH)
  if(NOT QV_ARM64E_LINKER)
    set(${out_reason} "no ld64.lld to link ${clang}'s arm64e objects" PARENT_SCOPE)
    return()
  endif()

  set(dir ${CMAKE_BINARY_DIR}/CMakeFiles/arm64e-probe)
  file(MAKE_DIRECTORY ${dir})
  file(WRITE ${dir}/probe.c
       "static int seven(void) { return 7; }\n"
       "int (*qv_probe_table[])(void) = {seven};\n"
       "int qv_probe_call(int i) { return qv_probe_table[i](); }\n")
  file(REMOVE ${dir}/probe.o ${dir}/probe.dylib)
  execute_process(
    COMMAND ${clang} -target arm64e-apple-ios14.0 -isysroot ${sdk} -O1 -c ${dir}/probe.c -o ${dir}/probe.o
    RESULT_VARIABLE compiled OUTPUT_QUIET ERROR_VARIABLE compile_error)
  if(NOT compiled EQUAL 0)
    string(REGEX REPLACE "\n.*" "" compile_error "${compile_error}")
    set(${out_reason} "${clang} cannot compile for arm64e: ${compile_error}" PARENT_SCOPE)
    return()
  endif()
  execute_process(
    COMMAND ${QV_ARM64E_LINKER} -arch arm64e -platform_version ios 14.0 ${sdk_version} -syslibroot ${sdk} -dylib
            -o ${dir}/probe.dylib ${dir}/probe.o -lSystem
    RESULT_VARIABLE linked OUTPUT_QUIET ERROR_VARIABLE link_error)
  if(NOT linked EQUAL 0)
    string(REGEX REPLACE "\n.*" "" link_error "${link_error}")
    set(${out_reason} "${QV_ARM64E_LINKER} cannot link authenticated pointers: ${link_error}" PARENT_SCOPE)
    return()
  endif()
  # Little-endian header: magic feedfacf, cputype 0100000c, then the cpusubtype that must be 80000002.
  file(READ ${dir}/probe.dylib header LIMIT 12 HEX)
  if(NOT header STREQUAL "cffaedfe0c00000102000080")
    set(${out_reason} "${QV_ARM64E_LINKER} wrote header ${header}, not arm64e with cpusubtype 0x80000002"
        PARENT_SCOPE)
    return()
  endif()
  set(${out_enabled} ON PARENT_SCOPE)
  set(${out_clang} ${clang} PARENT_SCOPE)
  set(${out_linker} ${QV_ARM64E_LINKER} PARENT_SCOPE)
  set(${out_reason} "${clang} and ${QV_ARM64E_LINKER} build pointer-authenticated arm64e" PARENT_SCOPE)
endfunction()
