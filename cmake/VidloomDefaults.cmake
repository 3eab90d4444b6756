# Language level, warnings, sanitizers and the compiler cache: the same for every target of the project.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  set(CMAKE_C_COMPILER_LAUNCHER "${CCACHE_PROGRAM}")
  set(CMAKE_CXX_COMPILER_LAUNCHER "${CCACHE_PROGRAM}")
  # The cache can only keep what is built with precompiled headers when the preprocessor says where they were taken in.
  add_compile_options($<$<COMPILE_LANG_AND_ID:CXX,GNU>:-fpch-preprocess>)
endif()

# Everything that every target of ours is compiled with. Multiplications and additions are never fused behind our back:
# the arithmetic that fuses says so with std::fma.
add_library(vidloom_options INTERFACE)
target_compile_options(vidloom_options INTERFACE -Wall -Wextra -Wshadow -Wnon-virtual-dtor -Wconversion -Wno-sign-conversion
                                                 -ffp-contract=off)
if(VIDLOOM_WERROR)
  target_compile_options(vidloom_options INTERFACE -Werror)
endif()
if(VIDLOOM_SANITIZE)
  add_compile_options(-fsanitize=${VIDLOOM_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${VIDLOOM_SANITIZE})
endif()
