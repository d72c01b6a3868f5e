# How everything here is compiled: the warnings, the sanitizers, reproducible file names.

add_library(stock_compile INTERFACE)
target_compile_options(stock_compile INTERFACE
  -Wall -Wextra -Wconversion -Wshadow
  # GCC 12 takes a copy inside std::string for one that overlaps (its bug 105651).
  $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>
  $<$<BOOL:${STOCK_WERROR}>:-Werror>
  $<$<CONFIG:Debug>:-fno-omit-frame-pointer>
  # Messages and debug information name files from the project's root.
  -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)
target_compile_definitions(stock_compile INTERFACE
  _GNU_SOURCE)

find_package(Threads REQUIRED)
target_link_libraries(stock_compile INTERFACE Threads::Threads)

if(STOCK_SANITIZE)
  target_compile_options(stock_compile INTERFACE
    -fsanitize=${STOCK_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(stock_compile INTERFACE -fsanitize=${STOCK_SANITIZE})
else()
  # Checked copies where the optimiser allows them; the sanitizers bring their own.
  target_compile_definitions(stock_compile INTERFACE $<$<CONFIG:Release>:_FORTIFY_SOURCE=2>)
endif()
if(STOCK_COVERAGE)
  target_compile_options(stock_compile INTERFACE --coverage -O0)
  target_link_options(stock_compile INTERFACE --coverage)
endif()
