# How every target of the project is compiled: the language, the warnings, the arithmetic, the sanitizers.
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

add_library(vakdtm_compiler INTERFACE)
target_compile_features(vakdtm_compiler INTERFACE cxx_std_20)
target_compile_options(vakdtm_compiler INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror
  # Cell values are promised to the last bit: a product and a sum are rounded one by one.
  -ffp-contract=off
  # g++ 12.2 makes one operation of two neighbouring conversions to float and back that stand behind a condition, and
  # drops the narrowing: what a cell's float would hold comes out as the double. It is right without this step.
  $<$<CXX_COMPILER_ID:GNU>:-fno-tree-slp-vectorize>)
# With clang the sorting of g++'s library warns of a deprecated function that it calls itself; g++ builds warn of ours.
target_compile_options(vakdtm_compiler INTERFACE $<$<CXX_COMPILER_ID:Clang>:-Wno-deprecated-declarations>)
# What a program links but doesn't call isn't loaded at its start: OpenGL takes longer than many a command.
target_link_options(vakdtm_compiler INTERFACE LINKER:--as-needed)
if(VAKDTM_SANITIZE)
  target_compile_options(vakdtm_compiler INTERFACE -fsanitize=${VAKDTM_SANITIZE} -fno-sanitize-recover=all
    -fno-omit-frame-pointer)
  target_link_options(vakdtm_compiler INTERFACE -fsanitize=${VAKDTM_SANITIZE})
endif()

find_program(VAKDTM_CCACHE ccache)
if(VAKDTM_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${VAKDTM_CCACHE})
  # A source with a precompiled header is cached only when its macros may be taken as compared already; g++ must leave
  # a mark of the header in the preprocessed text for that.
  if(NOT DEFINED ENV{CCACHE_SLOPPINESS})
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${VAKDTM_CCACHE})
  endif()
  target_compile_options(vakdtm_compiler INTERFACE $<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>)
endif()
