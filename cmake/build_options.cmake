# SPDX-License-Identifier: MIT
# Warnings, hardening and sanitizers shared by everything in the tree.
add_library(kelo_build_options INTERFACE)
target_compile_options(kelo_build_options INTERFACE
  -Wall -Wextra -Wshadow -Wformat=2 -Wno-format-nonliteral -Wundef -Wpointer-arith
  -Wno-psabi # notes on how C++ types are passed, none of which crosses the interface
  -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/= -fdebug-prefix-map=${PROJECT_SOURCE_DIR}=.
  -fdebug-prefix-map=${PROJECT_BINARY_DIR}=.
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual -Wconversion -Wsign-conversion>)
if(KELO_WERROR)
  target_compile_options(kelo_build_options INTERFACE -Werror)
endif()
target_include_directories(kelo_build_options INTERFACE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)

if(KELO_SANITIZE)
  target_compile_options(kelo_build_options INTERFACE
    -fsanitize=${KELO_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  string(REPLACE -O2 -O1 CMAKE_C_FLAGS_RELWITHDEBINFO "${CMAKE_C_FLAGS_RELWITHDEBINFO}")
  string(REPLACE -O2 -O1 CMAKE_CXX_FLAGS_RELWITHDEBINFO "${CMAKE_CXX_FLAGS_RELWITHDEBINFO}")
  # GCC warns of uninitialised uses in the standard library that only its own instrumentation adds.
  target_compile_options(kelo_build_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  target_link_options(kelo_build_options INTERFACE -fsanitize=${KELO_SANITIZE})
  # The vptr check would need the C++ run time's type information, which this library does not carry.
  if(KELO_SANITIZE MATCHES undefined)
    target_compile_options(kelo_build_options INTERFACE -fno-sanitize=vptr)
  endif()
endif()
if(KELO_BUILD_FUZZ)
  target_compile_options(kelo_build_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
