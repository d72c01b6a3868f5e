# libstock, shared and static, from one set of objects: the families of stock and
# the platform layer of the system that is built for.

set(stock_utility ${PROJECT_SOURCE_DIR}/lib/utility)
file(GLOB stock_sources CONFIGURE_DEPENDS
  ${stock_utility}/stock/*/*.cpp
  ${stock_utility}/deviants/common/*.cpp
  ${stock_utility}/deviants/${CMAKE_SYSTEM_NAME}/*.cpp)

add_library(stock_objects OBJECT ${stock_sources})
target_link_libraries(stock_objects PUBLIC stock_compile)
target_include_directories(stock_objects
  PUBLIC ${PROJECT_SOURCE_DIR}/include
  PRIVATE ${stock_utility} ${stock_utility}/stock)
set_target_properties(stock_objects PROPERTIES
  POSITION_INDEPENDENT_CODE ON
  CXX_VISIBILITY_PRESET hidden
  VISIBILITY_INLINES_HIDDEN ON)
# The loops of the converters need vectors, whatever the rest is built with: distributions
# build with -O2, where GCC leaves most of them as loops over single values.
file(GLOB stock_vector_sources CONFIGURE_DEPENDS ${stock_utility}/stock/numbers/convert*.cpp)
set_source_files_properties(${stock_vector_sources} PROPERTIES
  COMPILE_OPTIONS "$<$<NOT:$<CONFIG:Debug>>:-O3>")
# Calls from one family to another need not go through the symbol table; weak
# symbols (nomem) still do.
target_compile_options(stock_objects PRIVATE
  $<$<PLATFORM_ID:Linux>:-fno-semantic-interposition>)

function(stock_library target)
  target_link_libraries(${target} PUBLIC Threads::Threads ${CMAKE_DL_LIBS}
    PRIVATE $<BUILD_INTERFACE:stock_compile>)
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
    $<INSTALL_INTERFACE:include>)
  set_target_properties(${target} PROPERTIES OUTPUT_NAME stock)
endfunction()

add_library(stock_shared SHARED $<TARGET_OBJECTS:stock_objects>)
stock_library(stock_shared)
set_target_properties(stock_shared PROPERTIES
  VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR} EXPORT_NAME stock)
add_library(stock_static STATIC $<TARGET_OBJECTS:stock_objects>)
stock_library(stock_static)
add_library(stock::stock ALIAS stock_shared)
add_library(stock::stock_static ALIAS stock_static)
