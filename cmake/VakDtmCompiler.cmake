# How every target of the project is compiled: the language, the warnings, the arithmetic, the sanitizers.
add_library(vakdtm_compiler INTERFACE)
target_compile_features(vakdtm_compiler INTERFACE cxx_std_20)
target_compile_options(vakdtm_compiler INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror
  # Cell values are promised to the last bit: a product and a sum are rounded one by one.
  -ffp-contract=off)
if(VAKDTM_SANITIZE)
  target_compile_options(vakdtm_compiler INTERFACE -fsanitize=${VAKDTM_SANITIZE} -fno-sanitize-recover=all
    -fno-omit-frame-pointer)
  target_link_options(vakdtm_compiler INTERFACE -fsanitize=${VAKDTM_SANITIZE})
endif()

find_program(VAKDTM_CCACHE ccache)
if(VAKDTM_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${VAKDTM_CCACHE})
endif()
