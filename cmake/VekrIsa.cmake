# Kernel sources named *.isa.cpp are compiled once per instruction-set level.
# Each copy is a small generated wrapper that defines VEKR_ISA_NS (the
# namespace the kernel code goes into) and includes the source, compiled
# with that level's flags.

set(VEKR_ISA_LEVELS sse41 avx2 avx512)
set(VEKR_ISA_FLAGS_sse41 "")
set(VEKR_ISA_FLAGS_avx2 -mavx2 -mfma -mbmi -mbmi2 -mf16c -mlzcnt)
set(VEKR_ISA_FLAGS_avx512 -mavx2 -mfma -mbmi -mbmi2 -mf16c -mlzcnt
    -mavx512f -mavx512bw -mavx512dq -mavx512vl -mavx512cd -mavx512vnni)

# vekr_isa_sources(<out-var> <source>...): the generated wrappers for every level.
function(vekr_isa_sources out)
  set(generated)
  set(level_index 0)
  foreach(level IN LISTS VEKR_ISA_LEVELS)
    foreach(src IN LISTS ARGN)
      get_filename_component(abs "${src}" ABSOLUTE)
      file(RELATIVE_PATH rel "${PROJECT_SOURCE_DIR}" "${abs}")
      string(REGEX REPLACE "\\.isa\\.cpp$" "" stem "${rel}")
      set(wrapper "${PROJECT_BINARY_DIR}/isa/${stem}.${level}.cpp")
      set(content "// Generated: ${rel} compiled for ${level}.\n#define VEKR_ISA_NS ${level}\n#define VEKR_ISA_LEVEL ${level_index}\n#include \"${abs}\"\n")
      if(EXISTS "${wrapper}")
        file(READ "${wrapper}" old)
      else()
        set(old "")
      endif()
      if(NOT old STREQUAL content)
        file(WRITE "${wrapper}" "${content}")
      endif()
      set_source_files_properties("${wrapper}" PROPERTIES
        COMPILE_OPTIONS "${VEKR_ISA_FLAGS_${level}}"
        OBJECT_DEPENDS "${abs}")
      list(APPEND generated "${wrapper}")
    endforeach()
    math(EXPR level_index "${level_index} + 1")
  endforeach()
  set(${out} ${generated} PARENT_SCOPE)
endfunction()
